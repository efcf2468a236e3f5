#pragma once

#include "tools/lab/LabDocument.h"

#include <nlohmann/json.hpp>

namespace Lab {

/// The document as a lab's JSON, from which `LabReading` makes it again. What has its default is
/// left out.
nlohmann::ordered_json writtenDocument( const LabDocument & document );

/// Adds a member to an object, or to null, which becomes one. By its name it would be looked for
/// among all others. REQUIRES: it is new.
void append( nlohmann::ordered_json & object, const std::string & key,
             nlohmann::ordered_json value );
/// The shortest decimal that reads back as the same single-precision number.
nlohmann::ordered_json numberOf( float value );
/// A mask of colours: "0x1f".
nlohmann::ordered_json maskOf( std::uint32_t mask );

}

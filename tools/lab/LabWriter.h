#pragma once

#include "tools/lab/LabDocument.h"

#include <nlohmann/json.hpp>

namespace Lab {

/// The document as a lab's JSON, from which `LabReading` makes it again. What has its default is
/// left out.
nlohmann::ordered_json writtenDocument( const LabDocument & document );

/// The shortest decimal that reads back as the same single-precision number.
nlohmann::ordered_json numberOf( float value );
/// A mask of colours: "0x1f".
nlohmann::ordered_json maskOf( std::uint32_t mask );

}

#pragma once

#include "tools/igp/CaptureText.h"
#include "tools/igp/Topology.h"

/// Attributes of links that IS-IS and OSPF print alike.
namespace Igp {

/// A router may flood any number: one that is no bandwidth counts as 0, with a finding that names
/// `owner`. Throws CaptureError where the word is no number.
float readBandwidth( const CaptureLines & lines, std::string_view word, const std::string & owner,
                     Findings & findings );

/// The current line: "[0]: 2.5e+08 (Bytes/sec), [1]: 2.5e+08 (Bytes/sec)". Likewise.
void readUnreserved( const CaptureLines & lines, TeAttributes & attributes,
                     const std::string & owner, Findings & findings );

}

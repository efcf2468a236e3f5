#pragma once

#include "tools/lab/LabRunner.h"

#include <string>
#include <vector>

namespace Lab {

/// Something that a lab's network may lose, and the merge patch by which it does.
struct LabFailure {
   std::string name;
   LabJson patch;
};

enum class FailureKind { link, router, srlg };

/// Every link and LAN, every router but the lab's own, or every SRLG of the document, in order of
/// their names. O(links) for each router or SRLG.
std::vector< LabFailure > failuresOf( const LabDocument & document, FailureKind kind );

/// What the agent makes of that change, beside what it has published; nothing changes. A line a
/// path, or with `json` one document. Throws LabError where the patch leaves no lab.
void printWhatIf( const LabMoment & moment, const LabJson & patch, bool json, unsigned width,
                  std::ostream & out );

/// ... of each failure alone, on all cores: a line a failure. Gives false where the agent broke off
/// at one, which it has said.
bool printWhatIfEach( const LabMoment & moment, const std::vector< LabFailure > & failures,
                      bool json, unsigned width, std::ostream & out );

}

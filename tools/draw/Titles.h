#pragma once

#include "tools/lab/LabDocument.h"

#include <string>

/// What a drawing says of routers and links in words.
namespace Draw {

/// What ordinary paths are computed by: the TE metric, where there is none the IGP metric.
std::uint32_t metricOf( const Lab::LabLinkAttributes & attributes );
/// Bytes per second that are free at the worst priority, and so at each.
double freeOf( const Lab::LabLinkAttributes & attributes );
/// "10", or where the directions differ "10/20", from a to b and back.
std::string metricLabel( const Lab::LabLink & link );

/// All attributes, a line for each router's own.
std::string routerTitle( const std::string & topology, const Lab::LabRouter & router );
std::string linkTitle( const std::string & topology, const std::string & name,
                       const Lab::LabLink & link );
std::string lanTitle( const std::string & topology, const std::string & name,
                      const Lab::LabLan & lan );
std::string memberTitle( const std::string & topology, const std::string & lan,
                         const std::string & router, const Lab::LabLanMember & member );

}

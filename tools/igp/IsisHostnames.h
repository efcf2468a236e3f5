#pragma once

#include "tools/igp/IsisText.h"

#include <optional>
#include <vector>

namespace Igp {

/// The systems behind host names as a daemon shows them: in full, cut, or not at all.
class IsisHostnames {
 public:
   /// The capture outlives this object.
   explicit IsisHostnames( const IsisCapture & capture ) : capture_( capture ) {}

   /// Every system that the shown name may mean, in order. `full`: the whole name, where it is
   /// known.
   std::vector< Routing::Isis::SystemId > candidates( const std::string & shown,
                                                      const std::string & full ) const;
   /// The one system that the shown name, or system id, means.
   std::optional< Routing::Isis::SystemId > id( const std::string & shown ) const;

 private:
   const IsisCapture & capture_;
};

}

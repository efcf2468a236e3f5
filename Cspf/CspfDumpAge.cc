// How dumps tell when something happened: as an age, since the framework clock counts from the
// start of the machine and its readings mean nothing to a reader.

#include "Cspf/CspfDumpAge.h"

#include <cstdio>

namespace Cspf {

void
dumpAge( Kiv::DumpContext & context, int indent, const char * label, Lum::Seconds at ) {
   char age[ 64 ] = "never";
   if ( at != 0 ) {
      std::snprintf( age, sizeof age, "%.3f seconds", Lum::now() - at );
   }
   context.printf( indent, "%*c%s: %s%s\n", label, age, at != 0 ? " ago" : "" );
}

}

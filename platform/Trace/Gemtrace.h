#pragma once

#include "platform/Trace/Trace.h"

#include <functional>
#include <string_view>

/// The text trace: each message to a callback, as it comes.
namespace Gemtrace {

using Sink = std::function< void( int level, std::string_view text ) >;

/// Who hears messages of the levels up to `maxLevel` from now on (null: nobody).
void sinkIs( Sink sink, int maxLevel = 9 );

}

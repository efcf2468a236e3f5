#pragma once

/// That all of these can be named from outside.
template< auto... >
inline constexpr bool named = true;

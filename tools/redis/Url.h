#pragma once

#include <cstdint>
#include <string>

namespace Redis {

/// Where a database is.
struct Url {
   std::string text;        ///< as it was given
   std::string socketPath;  ///< empty: TCP
   std::string address;     ///< numeric, IPv4 or IPv6
   std::uint16_t port = 6379;
   std::uint32_t database = 0;
   std::string user, password;  ///< empty: none
};

/// "unix:PATH" or "redis://[USER@]HOST[:PORT][/DATABASE]"; HOST may be a name, an IPv4 address or
/// an IPv6 address in brackets, and is resolved here, once. The password is the first line of the
/// file, "-" for standard input, where one is given. Throws std::runtime_error.
Url parseUrl( const std::string & text, const std::string & passwordFile = {} );

}

#pragma once

#include <CLI/CLI.hpp>

#include <charconv>
#include <string>

namespace Text {

/// Longer than anybody waits, in seconds, and short enough to be added to any time.
inline constexpr long longestTime = 1'000'000'000;

/// Of an option: a finite number within these bounds.
inline CLI::Validator
numberFrom( long least, long most ) {
   const std::string bounds = std::to_string( least ) + " to " + std::to_string( most );
   return { [ = ]( const std::string & text ) {
              double number = 0;
              const char * const end = text.data() + text.size();
              const auto read = std::from_chars( text.data(), end, number );
              // Which nothing holds of that is no number.
              const bool within = number >= static_cast< double >( least )
                                  && number <= static_cast< double >( most );
              return read.ec == std::errc() && read.ptr == end && within
                        ? std::string()
                        : "expected a number from " + bounds + ", found \"" + text + "\"";
           },
            "from " + bounds };
}

}

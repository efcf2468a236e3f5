#pragma once

#include <stdexcept>
#include <string>

namespace State {

/// A place in a JSON document, for errors: a chain of tokens on the stack of the walk.
class Place {
 public:
   Place() noexcept = default;  ///< the whole document
   Place( const Place & parent, std::string token )
      : parent_( &parent ),
        token_( std::move( token ) ) {}

   /// The JSON pointer (RFC 6901), "" for the whole document.
   std::string pointer() const;

 private:
   const Place * parent_ = nullptr;
   std::string token_;
};

/// A JSON document that does not describe what it should.
class Error : public std::runtime_error {
 public:
   Error( const Place & place, const std::string & expected );

   const std::string & pointer() const noexcept { return pointer_; }
   const std::string & expected() const noexcept { return expected_; }

 private:
   std::string pointer_;
   std::string expected_;
};

}

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace Cspf {

/// The last changes of something, in order, for readers that follow at different speeds: each keeps
/// the position up to which it has read. Who falls too far behind, or reads across a change that
/// cannot be told in entries, learns only that everything may have changed.
template< class Change >
class ChangeLog {
 public:
   /// `kept`: the entries that are there for a slow reader at least.
   explicit ChangeLog( std::size_t kept ) : kept_( kept ) {}

   void note( const Change & change ) {
      if ( changes_.size() >= 2 * kept_ ) {
         changes_.erase( changes_.begin(), changes_.begin() + std::ptrdiff_t( kept_ ) );
         begin_ += kept_;
      }
      changes_.push_back( change );
   }
   /// Everything may have changed.
   void noteAll() {
      begin_ = end() + 1;
      std::exchange( changes_, {} );  // with its memory
      ++epoch_;
   }
   /// Where a reader stands that has read everything; never 0.
   std::uint64_t end() const { return begin_ + changes_.size(); }
   /// Differs before and after everything may have changed.
   std::uint64_t epoch() const { return epoch_; }
   /// What came after that position; nothing where everything may have changed. Valid until the
   /// next change.
   std::optional< std::span< const Change > > since( std::uint64_t position ) const {
      if ( position < begin_ ) {
         return std::nullopt;
      }
      return std::span( changes_ ).subspan( position - begin_ );
   }

 private:
   std::size_t kept_;
   std::uint64_t begin_ = 1;
   std::uint64_t epoch_ = 0;
   std::vector< Change > changes_;
};

}

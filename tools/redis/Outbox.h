#pragma once

#include "tools/redis/Connection.h"
#include "tools/redis/LocalState.h"

#include <deque>
#include <unordered_map>
#include <vector>

namespace Redis {

/// What has changed here and is not yet known to stand in the database. It holds names, not
/// values: what a field is worth is read when it is sent, so that it is sent once however often it
/// has changed, and a database that is away for long costs no more than the state itself.
class Outbox {
 public:
   /// Where no field is named, the key itself, which is there.
   void changed( const std::string & key, const std::string & field );
   /// The key ended, with all that was in it. What is in it when it comes again is told anew.
   void ended( const std::string & key );
   bool hasPending() const { return !pending_.order.empty(); }
   bool isInFlight() const { return !sent_.empty() && sent_.back().revision == 0; }
   bool isEmpty() const { return !hasPending() && sent_.empty(); }
   std::size_t size() const;
   /// Whether the field's newest value is one that this process has yet to see in the log. What
   /// others wrote meanwhile came before it.
   bool holds( const std::string & key, const std::string & field ) const;

   bool holdsAny( const std::string & key ) const;

   /// Adds what is pending to a `state_write`: all of it, up to what this process and the server
   /// may be kept busy with. Gives the number of fields. REQUIRES: nothing is in flight.
   std::size_t take( const LocalState & state, Command & command );
   /// What is in flight has been written with that revision.
   void acknowledged( std::uint64_t revision );
   /// The log has been followed up to there; its last turn was written by this process or not.
   void reached( std::uint64_t revision, bool own );
   /// What is in flight was refused for the sake of one key, of which nothing waits any more; the
   /// rest waits to be sent again.
   void refused( const std::string & key );
   /// Nobody knows whether what is in flight was written: it waits to be sent again. Of what was
   /// acknowledged, the database has had it.
   void restore();
   /// Likewise of all that has yet to be seen in the log: the database may have lost it.
   void restoreAll();

 private:
   /// Names in the order in which they came first. 100,000 of them come at once: they are found
   /// through slots that lie together, since nodes here and there would cost more than all else.
   class Names {
    public:
      void insert( std::string_view name );
      bool contains( std::string_view name ) const;
      const std::deque< std::string > & inOrder() const { return inOrder_; }
      std::size_t size() const { return inOrder_.size(); }
      Names takeFirst( std::size_t most );

    private:
      struct Slot {
         std::uint32_t hash = 0, place = 0;  ///< the first is 1; 0: the slot is free
      };
      std::size_t slotOf( std::uint32_t hash, std::string_view name ) const;
      void grow();
      std::string takeFirst();

      std::deque< std::string > inOrder_;
      std::uint32_t taken_ = 0;    ///< of the places, those before the first in order
      std::vector< Slot > slots_;  ///< so many as a power of two, at most half of them taken
   };
   struct Fields {
      bool ended = false;  ///< before all else
      bool whole = false;
      Names names;
      std::size_t size() const { return names.size() + ended + whole; }
   };
   struct Batch {
      std::deque< std::string > order;
      std::unordered_map< std::string, Fields > keys;
      std::uint64_t revision = 0;  ///< 0: in flight
   };

   static bool holds( const Batch & batch, const std::string & key, const std::string & field );
   Fields & pendingOf( const std::string & key );
   void restoreLast();
   static void addKey( const LocalState & state, const std::string & key, const Fields & fields,
                       Command & command );

   Batch pending_;
   std::deque< Batch > sent_;
};

}

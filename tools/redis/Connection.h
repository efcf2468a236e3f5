#pragma once

#include "platform/Lum/ActivityLoop.h"
#include "tools/redis/Url.h"

#include <hiredis/hiredis.h>

#include <deque>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace Redis {

/// One command as it goes over the wire, built argument by argument.
class Command {
 public:
   Command() = default;
   Command( std::initializer_list< std::string_view > arguments ) {
      for ( const auto & argument : arguments ) {
         add( argument );
      }
   }
   Command & add( std::string_view argument );
   Command & add( std::uint64_t number ) { return add( std::to_string( number ) ); }

   std::string head() const { return "*" + std::to_string( count_ ) + "\r\n"; }
   /// In pieces: a long one is never moved as it grows.
   std::deque< std::string > takeBody() { return std::move( body_ ); }

 private:
   std::size_t count_ = 0;
   std::deque< std::string > body_;
};

/// A connection to a database that never blocks the loop: commands go out in order, answers come
/// back in order. It authenticates and chooses its database by itself.
class Connection {
 public:
   using Answer = std::function< void( const redisReply & reply ) >;
   /// Told once, why the connection is over. No answer comes after it; the connection may be
   /// destroyed there.
   using Lost = std::function< void( const std::string & why ) >;

   /// Begins to connect; commands may be given at once. The loop outlives the connection.
   Connection( Lum::ActivityLoop & loop, const Url & url, Lost lost );
   ~Connection();
   Connection( const Connection & ) = delete;
   Connection & operator=( const Connection & ) = delete;

   /// `answer` does not destroy the connection.
   void send( Command command, Answer answer );
   /// The reply, for one who needs it beyond its answer. REQUIRES: called in that answer.
   std::shared_ptr< const redisReply > keptReply() const { return reply_; }
   bool isWaiting() const noexcept { return !answers_.empty(); }
   /// Bytes that went either way.
   std::uint64_t progress() const noexcept { return progress_; }

 private:
   void open( const Url & url );
   void greet( const Url & url );
   void handleEvents( std::uint32_t events );
   void receive();
   bool takeAnswers();
   void flush();
   void watchEvents();
   void end( const std::string & why );

   Lum::ActivityLoop & loop_;
   const Lost lost_;
   int fd_ = -1;
   bool connected_ = false;
   std::deque< std::string > outgoing_;
   std::size_t written_ = 0;  ///< so much of the first of them
   std::uint32_t watched_ = 0;
   std::deque< Answer > answers_;
   std::shared_ptr< const redisReply > reply_;  ///< which is being answered
   std::uint64_t progress_ = 0;
   std::unique_ptr< redisReader, void ( * )( redisReader * ) > reader_;
   Lum::ActivityLoop::TimerId failure_{ 0, 0 };
};

/// The text of a reply that is one; empty for any other.
std::string_view textOf( const redisReply & reply );
/// The number of a reply that is one, or a text that begins with one; 0 for any other.
std::uint64_t numberOf( const redisReply & reply );
bool isError( const redisReply & reply );

}

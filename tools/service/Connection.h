#pragma once

#include "platform/Lum/ActivityLoop.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace Service {

/// One end of a stream of frames: lines of text, on a socket that never blocks the loop.
///
/// What cannot be written at once waits in a backlog. A peer that lets the backlog grow past its
/// bound is told so in a last frame, as far as it still reads, and cut off. What it asked for
/// itself may be larger; it then has to be read before the peer asks again.
class Connection {
 public:
   static constexpr std::size_t maxFrame = 8u << 20, maxBacklog = 32u << 20;

   struct Handlers {
      std::function< void( std::string_view frame ) > frame;
      /// The frame that is being received is longer than `maxFrame`; the rest of it is skipped.
      std::function< void() > oversized;
      /// The connection is over. It may be destroyed here.
      std::function< void() > closed;
   };

   /// Takes over the connected, non-blocking socket. The loop outlives the connection.
   Connection( Lum::ActivityLoop & loop, int socket, Handlers handlers );
   ~Connection();
   Connection( const Connection & ) = delete;
   Connection & operator=( const Connection & ) = delete;

   /// Sends one frame, which holds no line feed. A connection that is over takes nothing.
   void send( const std::string & frame );
   /// Likewise a frame that the peer waits for, whatever its size.
   void answer( const std::string & frame );
   /// The frame that tells a peer why it is cut off for its backlog.
   void farewellIs( std::string frame ) { farewell_ = std::move( frame ); }
   std::size_t backlog() const noexcept { return backlog_.size() - sent_; }

 private:
   void handleEvents( std::uint32_t events );
   void receive();
   void takeFrames();
   void cutOff();
   void flush();
   void watchEvents();
   void end();

   Lum::ActivityLoop & loop_;
   int socket_;
   Handlers handlers_;
   std::string received_;
   std::size_t searched_ = 0;  ///< so much of it holds no line feed
   bool skipping_ = false;
   std::string backlog_;
   std::size_t sent_ = 0;
   std::string farewell_;
   bool deaf_ = false;  ///< nothing is read any more: the peer is cut off, or has ended its stream
   bool isCutOff_ = false;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

}

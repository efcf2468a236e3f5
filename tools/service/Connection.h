#pragma once

#include "platform/Lum/ActivityLoop.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace Service {

/// One end of a stream of frames: lines of text, on a socket that never blocks the loop. Frames
/// that came together are served in slices of time, between which the loop goes on.
///
/// What cannot be written at once waits in a backlog. A peer that lets the backlog grow past its
/// bound is told so in a last frame, as far as it still reads, and cut off. What it asked for
/// itself may be larger; it then has to be read before the peer asks again.
class Connection {
 public:
   static constexpr std::size_t maxFrame = 8u << 20, maxBacklog = 32u << 20, fullBacklog = 1u << 20;

   struct Handlers {
      std::function< void( std::string_view frame ) > frame;
      /// The frame that is being received is longer than `maxFrame`; the rest of it is skipped.
      std::function< void() > oversized;
      /// The backlog has become short.
      std::function< void() > drained;
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
   void answer( const std::string & frame ) {
      part( frame );
      endFrame();
   }
   /// Sends a part of such a frame. Other frames wait until it is ended.
   void part( std::string_view text );
   void endFrame();
   /// While paused, no frame is taken from the peer.
   void pausedIs( bool paused );
   bool isPaused() const noexcept { return paused_; }
   /// Ends the connection as soon as what was sent until now has been read.
   void breakOff();
   /// The frame that tells a peer why it is cut off for its backlog.
   void farewellIs( std::string frame ) { farewell_ = std::move( frame ); }
   std::size_t backlog() const noexcept { return backlog_.size() - sent_; }
   /// Whether whoever has more to send should wait for `drained`.
   bool isFull() const noexcept { return backlog() > fullBacklog; }

 private:
   void handleEvents( std::uint32_t events );
   void receive();
   void takeFrames();
   bool takesFrames() const noexcept { return !deaf_ && !paused_; }
   /// Whether the slice that ends then is over; the rest of the frames is taken in the next one.
   bool yields( Lum::Seconds end );
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
   bool amidFrame_ = false;
   std::string held_;  ///< frames that wait for the end of the one that is being sent
   bool paused_ = false;
   Lum::ActivityLoop::TimerId rest_{ 0, 0 };  ///< armed while more frames have been received
   bool deaf_ = false;  ///< nothing is read any more: the peer is cut off, or has ended its stream
   bool isCutOff_ = false;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

}

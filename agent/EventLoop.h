/// The agent's one event loop. It drives the task scheduler:
///
///    wake-up ──post──► turn: lock, run one task, unlock ──post again while tasks wait──┐
///                       ▲                                                              │
///                       └──────────── timers, findings of other threads ◄──────────────┘
///
/// Each turn runs one task, that is one slice, and everything else that has happened meanwhile gets
/// its turn before the next. Whatever runs here holds the SDK lock, and lets go of it between two
/// turns, so that callers on other threads are never shut out for longer than a slice.
///
/// Owner      the agent
/// Thread     run() is the loop; post() and stop() may be called from any thread
/// Re-entry   what runs may do anything but call run()

#pragma once

#include "Oru/Oru.h"
#include "velo/velo.h"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <functional>
#include <utility>

namespace VeloAgent {

class EventLoop {
 public:
   explicit EventLoop( Lumo::Ptr< Oru::TaskScheduler > scheduler );
   ~EventLoop();
   EventLoop( const EventLoop & ) = delete;
   EventLoop & operator=( const EventLoop & ) = delete;

   /// For timers; let their handlers run through locked().
   asio::io_context & context() { return context_; }

   /// `work`, to be called with the SDK lock held. What it is called with is passed on.
   template< typename Work >
   static auto locked( Work work ) {
      return [work = std::move( work )]( auto &&... arguments ) mutable {
         const velo::sdk_scoped_lock lock;
         work( std::forward< decltype( arguments ) >( arguments )... );
      };
   }

   /// Runs `work` on the loop, after what waits already.
   template< typename Work >
   void post( Work work ) {
      asio::post( context_, locked( std::move( work ) ) );
   }

   /// Calls `readable` once, when `fd` is readable. Takes nothing out of it. One descriptor only.
   void whenReadable( int fd, std::function< void() > readable );

   /// Runs until stop(). What a handler throws comes out here; run() may then be called again.
   void run();

   /// Nothing more is run after what runs now. Harmless when repeated.
   void stop() { context_.stop(); }

 private:
   void wakeUp();
   void turn();

   Lumo::Ptr< Oru::TaskScheduler > scheduler_;
   asio::io_context context_;
   asio::posix::stream_descriptor watched_{ context_ };
   bool turnPosted_ = false; ///< Or in progress. Only touched under the SDK lock.
};

} // namespace VeloAgent

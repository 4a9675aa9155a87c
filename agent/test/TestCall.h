/// A call whose transport is the test: what the agent writes stays on its way until the test takes
/// it.

#pragma once

#include "agent/stream/MessageStream.h"

#include <optional>
#include <string>
#include <utility>

namespace VeloAgent::test {

template< typename Response >
class TestCallOf final : public MessageStream< Response > {
 public:
   ~TestCallOf() override { isOver(); }

   void ownerIs( MessageStreamOwner * owner ) override { owner_ = owner; }
   bool writable() const override { return !onItsWay_ && !end_; }
   Response & message() override { return message_; }
   void write() override { onItsWay_ = true; }
   void close( StreamEnd why, const std::string & text ) override {
      if ( !end_ ) { end_ = { why, text }; }
   }
   void abort( StreamEnd why, const std::string & text ) override {
      if ( end_ ) { return; }
      onItsWay_ = false;
      close( why, text );
   }
   std::string peer() const override { return "test:"; }

   /// The message on its way, if there is one.
   std::optional< Response > take() {
      if ( !onItsWay_ ) { return {}; }
      onItsWay_ = false;
      Response taken;
      taken.Swap( &message_ );
      if ( owner_ && !end_ ) { owner_->writable(); }
      return taken;
   }
   /// The last call: nobody knows of this any more.
   void isOver() {
      if ( MessageStreamOwner * const owner = std::exchange( owner_, nullptr ) ) { owner->ended(); }
   }

   bool onItsWay() const { return onItsWay_; }
   bool closed() const { return end_.has_value(); }
   StreamEnd why() const { return end_.value().first; }
   const std::string & text() const { return end_.value().second; }

 private:
   MessageStreamOwner * owner_ = nullptr;
   Response message_;
   bool onItsWay_ = false;
   std::optional< std::pair< StreamEnd, std::string > > end_;
};

} // namespace VeloAgent::test

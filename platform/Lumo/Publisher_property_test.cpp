// Random scripts in which listeners do anything to publishers, slots and each other while changes
// are being told, played once with real publishers and once with a model that is too simple to be
// wrong: both must tell the same story.

#include <array>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "Lumo/Publisher.h"

namespace Lumo {
namespace {

constexpr std::size_t kSlots = 5, kPublishers = 2;
constexpr short kAttributes = 2;

enum class Verb { join, leave, destroySlot, destroyPublisher, makeZombie, publish, fail, attempt };

struct Action {
   Verb verb;
   std::size_t slot;
   std::size_t publisher;
   short attribute;
};

using Script = std::vector< Action >;

void showValue( const Action & a, std::ostream & os ) {
   static constexpr std::array names = { "join",       "leave",   "destroySlot", "destroyPublisher",
                                         "makeZombie", "publish", "fail",        "attempt" };
   os << names[static_cast< std::size_t >( a.verb )] << "( slot " << a.slot << ", publisher "
      << a.publisher << ", attribute " << a.attribute << " )";
}

/// What a listener throws.
struct HadEnough {};

/// Who plays: hears of calls, notes them, and does what the script says next. `World` knows what a
/// slot and a publisher are.
template< class World >
class Player {
 public:
   Player( const Script & script, const std::vector< Script > & reactions )
      : reactions_( reactions ) {
      for ( const Action & action : script ) {
         try {
            play( action );
         } catch ( HadEnough ) { story.push_back( "the script is told of a failure" ); }
         note();
      }
   }

   /// A slot was told: the n-th call of all plays the n-th reaction.
   void heard( std::size_t slot, short attribute, int value ) {
      story.push_back( fmt::format( "slot {} hears {} of attribute {}", slot, value, attribute ) );
      note();
      if ( nextReaction_ == reactions_.size() ) { return; }
      for ( const Action & action : reactions_[nextReaction_++] ) { play( action ); }
      note();
   }

   std::vector< std::string > story;

 private:
   void play( const Action & a ) {
      switch ( a.verb ) {
      case Verb::join:
         return world_.join( a.slot, a.publisher );
      case Verb::leave:
         return world_.leave( a.slot );
      case Verb::destroySlot:
         return world_.destroySlot( a.slot );
      case Verb::destroyPublisher:
         return world_.destroyPublisher( a.publisher );
      case Verb::makeZombie:
         return world_.makeZombie( a.slot );
      case Verb::publish:
         return world_.publish( a.publisher, a.attribute, ++value_ );
      case Verb::fail:
         throw HadEnough{};
      case Verb::attempt:
         try {
            world_.publish( a.publisher, a.attribute, ++value_ );
         } catch ( HadEnough ) { story.push_back( "a listener is told of a failure" ); }
      }
   }

   void note() {
      for ( std::size_t p = 0; p < kPublishers; ++p ) {
         for ( short attribute = 0; attribute < kAttributes; ++attribute ) {
            story.push_back( fmt::format( "publisher {} ({}) tells {}", p,
                                          world_.hasSubscribers( p ) ? "listened to" : "alone",
                                          world_.valueBeingTold( p, attribute ) ) );
         }
      }
   }

   World world_{ *this };
   const std::vector< Script > & reactions_;
   std::size_t nextReaction_ = 0;
   int value_ = 0;
};

/// Real publishers, real slots. What is destroyed is replaced by a new one at once.
class RealWorld {
 public:
   explicit RealWorld( Player< RealWorld > & player ) {
      for ( auto & publisher : publishers_ ) { publisher.emplace(); }
      for ( std::size_t id = 0; id < kSlots; ++id ) {
         listeners_[id] = std::make_unique< Listener >( player, id );
      }
   }

   void join( std::size_t slot, std::size_t publisher ) {
      Subscriber & joining = listeners_[slot]->slot;
      if ( !joining.subscribed() ) { publishers_[publisher]->subscriberAdd( joining ); }
   }
   void leave( std::size_t slot ) { listeners_[slot]->slot.unlink(); }
   void destroySlot( std::size_t slot ) {
      listeners_[slot] = std::make_unique< Listener >( listeners_[slot]->player, slot );
   }
   void destroyPublisher( std::size_t p ) { publishers_[p].emplace(); }
   void makeZombie( std::size_t slot ) { listeners_[slot]->zombie = true; }
   void publish( std::size_t p, short attribute, int value ) {
      publishers_[p]->publishChange( attribute, nullptr, nullptr, &value );
   }
   bool hasSubscribers( std::size_t p ) const { return publishers_[p]->hasSubscribers(); }
   int valueBeingTold( std::size_t p, short attribute ) const {
      const Notification * told = publishers_[p]->notification( attribute );
      return told ? *static_cast< const int * >( told->newValue ) : 0;
   }

 private:
   struct Listener {
      Listener( Player< RealWorld > & p, std::size_t i ) : player( p ), id( i ) {}
      bool isZombie() const { return zombie; }
      void heard( Publisher *, Subscriber *, short attribute, const void *, const void * value ) {
         player.heard( id, attribute, *static_cast< const int * >( value ) );
      }

      Player< RealWorld > & player;
      const std::size_t id;
      bool zombie = false;
      MemberSubscriber< Listener, &Listener::heard > slot{ this };
   };

   std::array< std::unique_ptr< Listener >, kSlots > listeners_;
   std::array< std::optional< Publisher >, kPublishers > publishers_;
};

/// The same with a ticket per subscription: a change is told to the tickets that were out when it
/// happened and are still valid, in their order.
class ModelWorld {
 public:
   explicit ModelWorld( Player< ModelWorld > & player ) : player_( player ) {}

   void join( std::size_t slot, std::size_t publisher ) {
      if ( slots_[slot].ticket == 0 ) {
         slots_[slot] = { publisher, ++tickets_, slots_[slot].zombie };
      }
   }
   void leave( std::size_t slot ) { slots_[slot].ticket = 0; }
   void destroySlot( std::size_t slot ) { slots_[slot] = {}; }
   void destroyPublisher( std::size_t p ) {
      for ( Slot & slot : slots_ ) {
         if ( slot.publisher == p ) { slot.ticket = 0; }
      }
      for ( Telling & telling : telling_ ) {
         if ( telling.publisher == p ) { telling.publisher = kPublishers; }
      }
   }
   void makeZombie( std::size_t slot ) { slots_[slot].zombie = true; }

   void publish( std::size_t p, short attribute, int value ) {
      telling_.push_back( { p, attribute, value } );
      const std::size_t depth = telling_.size();
      const int last = tickets_;
      int told = 0;
      try {
         while ( telling_[depth - 1].publisher == p ) {
            const std::size_t next = holderOfNextTicket( p, told, last );
            if ( next == kSlots ) { break; }
            told = slots_[next].ticket;
            if ( !slots_[next].zombie ) { player_.heard( next, attribute, value ); }
         }
      } catch ( HadEnough ) {
         telling_.pop_back();
         throw;
      }
      telling_.pop_back();
   }

   bool hasSubscribers( std::size_t p ) const {
      return holderOfNextTicket( p, 0, tickets_ ) != kSlots;
   }
   int valueBeingTold( std::size_t p, short attribute ) const {
      for ( auto at = telling_.rbegin(); at != telling_.rend(); ++at ) {
         if ( at->publisher == p && at->attribute == attribute ) { return at->value; }
      }
      return 0;
   }

 private:
   struct Slot {
      std::size_t publisher = 0;
      int ticket = 0; ///< 0: not subscribed.
      bool zombie = false;
   };
   struct Telling {
      std::size_t publisher;
      short attribute;
      int value;
   };

   std::size_t holderOfNextTicket( std::size_t p, int after, int upTo ) const {
      std::size_t holder = kSlots;
      for ( std::size_t id = 0; id < kSlots; ++id ) {
         const Slot & slot = slots_[id];
         if ( slot.publisher == p && slot.ticket > after && slot.ticket <= upTo ) {
            holder = id;
            upTo = slot.ticket;
         }
      }
      return holder;
   }

   Player< ModelWorld > & player_;
   std::array< Slot, kSlots > slots_;
   std::vector< Telling > telling_;
   int tickets_ = 0;
};

rc::Gen< Action > anyAction() {
   const auto verb = rc::gen::weightedElement< Verb >( { { 8, Verb::join },
                                                         { 3, Verb::leave },
                                                         { 3, Verb::destroySlot },
                                                         { 1, Verb::destroyPublisher },
                                                         { 1, Verb::makeZombie },
                                                         { 8, Verb::publish },
                                                         { 1, Verb::fail },
                                                         { 2, Verb::attempt } } );
   return rc::gen::construct< Action >( verb, rc::gen::inRange< std::size_t >( 0, kSlots ),
                                        rc::gen::inRange< std::size_t >( 0, kPublishers ),
                                        rc::gen::inRange< short >( 0, kAttributes ) );
}

RC_GTEST_PROP( PublisherProperty, TellsTheSameStoryAsTheModelWhateverListenersDo, () ) {
   const auto script = *rc::gen::container< Script >( anyAction() );
   const auto reactions = *rc::gen::container< std::vector< Script > >(
      rc::gen::resize( 6, rc::gen::container< Script >( anyAction() ) ) );
   const Player< RealWorld > real( script, reactions );
   const Player< ModelWorld > model( script, reactions );
   RC_ASSERT( real.story == model.story );
   RC_CLASSIFY( real.story.size() > script.size() * 4 + 50, "with much to tell" );
}

} // namespace
} // namespace Lumo

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "Lumo/Publisher.h"

namespace Lumo {

inline constexpr short kAttribute = 7;

/// Somebody with a name who hears of changes and may then do anything, also end its own life.
class Listener {
 public:
   Listener( std::string name, std::vector< std::string > & story )
      : name_( std::move( name ) ), story_( story ) {}

   bool isZombie() const { return zombie; }

   std::function< void() > reaction;
   bool zombie = false;

 private:
   void heard( Publisher *, Subscriber *, short, const void *, const void * value ) {
      story_.push_back( name_ + " hears " + static_cast< const char * >( value ) );
      if ( const auto reacting = reaction ) { reacting(); }
   }

   std::string name_;
   std::vector< std::string > & story_;

 public:
   MemberSubscriber< Listener, &Listener::heard > slot{ this };
};

/// A publisher and listeners that are known by their names.
class PublisherTest : public testing::Test {
 protected:
   void join( const std::string & name ) {
      auto & listener = listeners[name];
      if ( !listener ) { listener = std::make_unique< Listener >( name, story ); }
      publisher->subscriberAdd( listener->slot );
   }
   void leave( const std::string & name ) {
      publisher->subscriberRemove( listeners.at( name )->slot );
   }
   void destroy( const std::string & name ) { listeners.erase( name ); }
   void when( const std::string & name, std::function< void() > reaction ) {
      listeners.at( name )->reaction = std::move( reaction );
   }
   /// As `when`, but the first time only.
   void once( const std::string & name, std::function< void() > reaction ) {
      when( name, [this, name, reaction] {
         listeners.at( name )->reaction = nullptr;
         reaction();
      } );
   }

   void change( const char * text ) {
      publisher->publishChange( kAttribute, nullptr, nullptr, text );
   }
   const char * changeBeingTold() const {
      const Notification * told = publisher->notification( kAttribute );
      return told ? static_cast< const char * >( told->newValue ) : "none";
   }

   std::unique_ptr< Publisher > publisher = std::make_unique< Publisher >();
   std::map< std::string, std::unique_ptr< Listener > > listeners;
   std::vector< std::string > story;
};

} // namespace Lumo

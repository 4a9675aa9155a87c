#pragma once

#include <concepts>
#include <cstddef>

#include "Frell/Manager.h"

namespace Frell {

/// The reader's side of a manager: what `frell_defrell` reads images with. Everything that an image
/// says is checked; what is wrong raises `CorruptImage`.
///
/// `Base` is the base of all entities that these images may hold.
template< class Base >
class SMgr {
 public:
   explicit SMgr( const Manager & manager ) : manager_( manager ) {}

   Lumo::String string( const String & image ) const { return manager_.chars( image ); }
   bool flag( const Flag & image ) const { return Manager::flag( image ); }

   /// The entity that the image holds, which must be a `T`, or null.
   template< std::derived_from< Base > T >
   Lumo::Ptr< const T > entity( const EntityRef & image ) const {
      const Lumo::Ptr< const Lumo::Node > held = manager_.entity( image );
      auto asT = Lumo::dynamicPtrCast< const T >( held );
      if ( held && !asT ) { throw CorruptImage( "an entity of another type is held" ); }
      return asT;
   }

 private:
   const Manager & manager_;
};

/// The writer's side of a manager when the writer starts again and takes its images over: what
/// `frell_restart` is given.
template< class Base >
class WMgr {
 public:
   explicit WMgr( Manager & manager ) : manager_( manager ) {}

   Manager & manager() { return manager_; }
   SMgr< Base > reader() const { return SMgr< Base >( manager_ ); }

   /// Accounts for one value taken over.
   void takenOver() { ++valuesTakenOver_; }
   std::size_t valuesTakenOver() const { return valuesTakenOver_; }

 private:
   Manager & manager_;
   std::size_t valuesTakenOver_ = 0;
};

} // namespace Frell

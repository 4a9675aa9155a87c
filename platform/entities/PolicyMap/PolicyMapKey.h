#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Lumo/Relocatable.h"
#include "Lumo/String.h"
#include "Quon/Text.h"
#include "QuonFrell/QuonFrell.h"

namespace PolicyMap::Counters {

/// Names a policy map. A value of one word; copying takes a reference on the shared name.
class VELO_PLATFORM_EXPORT PolicyMapKey {
 public:
   PolicyMapKey() = default;

   /// Errors: the range error for a name longer than a string attribute may be.
   explicit PolicyMapKey( const Lumo::String & name );

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit PolicyMapKey( Quon::CharRange & text );

   const Lumo::String & name() const { return name_; }

   friend bool operator==( const PolicyMapKey &, const PolicyMapKey & ) = default;
   /// By name, byte-wise.
   friend std::strong_ordering operator<=>( const PolicyMapKey & a, const PolicyMapKey & b ) {
      return a.name_ <=> b.name_;
   }

   /// O(1). Not the same in two processes.
   std::uint64_t hash( unsigned seed ) const;

   /// Its image in shared memory; see QuonFrell/QuonFrell.h for the hooks.
   struct Image {
      Frell::String name;
   };
   void frell_shmemify( void * dst, Frell::Manager * manager ) const;
   void frell_defrell( const void * src, Frell::SMgr< QuonFrell::EntityBase > * reader );
   /// Nothing in the image depends on the writer's process: the key is only accounted for.
   void frell_restart( Frell::WMgr< QuonFrell::EntityBase > * writer );

   static constexpr bool kRelocatable = Lumo::isRelocatable< Lumo::String >;
   static constexpr std::string_view kTypeName = "PolicyMap::Counters::PolicyMapKey";
   static constexpr auto attributes() {
      return std::make_tuple(
         Quon::attribute( "name", &PolicyMapKey::name, &PolicyMapKey::nameIs ) );
   }

 private:
   void nameIs( const Lumo::String & name );

   Lumo::String name_;
};

VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os, const PolicyMapKey & key );

} // namespace PolicyMap::Counters

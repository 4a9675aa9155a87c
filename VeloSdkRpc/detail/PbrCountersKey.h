#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "PolicyMap/PolicyMap.h"
#include "Quon/Quon.h"
#include "QuonFrell/QuonFrell.h"
#include "VeloSdkRpc/Export.h"

namespace VeloSdkRpc {

/// The long key: names one class of one policy map, to which a set of hardware counters belongs.
///
/// A value of three words. Copying takes references on shared strings and allocates nothing.
class VELO_SDK_RPC_EXPORT PbrCountersKey {
 public:
   PbrCountersKey() = default;
   PbrCountersKey( const PolicyMap::Counters::PolicyMapKey & policyKey, const Lumo::String & name,
                   const Lumo::String & aclRule )
      : policyKey_( policyKey ), name_( name ), aclRule_( aclRule ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit PbrCountersKey( Quon::CharRange & text );

   /// Its image in shared memory.
   struct Image {
      PolicyMap::Counters::PolicyMapKey::Image policyKey;
      Frell::String name;
      Frell::String aclRule;
   };
   /// @name Hooks of the image, see QuonFrell/QuonFrell.h
   /// @{
   PbrCountersKey( const Image * image, Frell::Manager & manager );
   void frell_shmemify( void * dst, Frell::Manager * manager ) const;
   void frell_defrell( const void * src, Frell::SMgr< QuonFrell::EntityBase > * reader );
   void frell_restart( Frell::WMgr< QuonFrell::EntityBase > * writer );
   /// @}

   /// The policy map.
   const PolicyMap::Counters::PolicyMapKey & policyKey() const { return policyKey_; }
   /// The class within the policy map; also the key of its counters in `classCounters`.
   const Lumo::String & name() const { return name_; }
   /// The ACL rule within the class; plays no part in finding counters.
   const Lumo::String & aclRule() const { return aclRule_; }

   /// By `policyKey`, then `name`, then `aclRule`, the strings byte-wise.
   VELO_SDK_RPC_EXPORT friend std::strong_ordering operator<=>( const PbrCountersKey & a,
                                                                const PbrCountersKey & b );
   friend bool operator==( const PbrCountersKey & a, const PbrCountersKey & b ) {
      return isEq( &a, &b );
   }

   /// Equality of two keys behind untyped pointers.
   static bool isEq( const void * a, const void * b ) {
      const auto & left = *static_cast< const PbrCountersKey * >( a );
      const auto & right = *static_cast< const PbrCountersKey * >( b );
      return left.name_ == right.name_ && left.aclRule_ == right.aclRule_ &&
             left.policyKey_ == right.policyKey_;
   }

   /// Mixes `policyKey`, `name` and `aclRule` into `seed`. O(1). Not the same in two processes.
   std::uint64_t hash( unsigned seed ) const { return hashOf( seed, policyKey_, name_, aclRule_ ); }
   static std::uint64_t hashOf( unsigned seed, const PolicyMap::Counters::PolicyMapKey & policyKey,
                                const Lumo::String & name, const Lumo::String & aclRule ) {
      Quon::HashState state( seed );
      state.mix( static_cast< std::uint32_t >( policyKey.hash( 0 ) ) );
      state.mix( name );
      state.mix( aclRule );
      return state.result();
   }

   /// Whether the key differs from a default one.
   explicit operator bool() const;

   static constexpr bool kRelocatable =
      Lumo::isRelocatable< PolicyMap::Counters::PolicyMapKey, Lumo::String >;
   static constexpr std::string_view kTypeName = "VeloSdkRpc::PbrCountersKey";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "policyKey", &PbrCountersKey::policyKey_ ),
                              Quon::attribute( "name", &PbrCountersKey::name_ ),
                              Quon::attribute( "aclRule", &PbrCountersKey::aclRule_ ) );
   }

 private:
   PolicyMap::Counters::PolicyMapKey policyKey_;
   Lumo::String name_;
   Lumo::String aclRule_;
};

/// Stands for the long key of a class, without an ACL rule, in a look-up: refers to its parts, so
/// that no reference on them is taken.
struct PbrCountersKeyProbe {
   const PolicyMap::Counters::PolicyMapKey & policyKey;
   const Lumo::String & name;

   std::uint64_t hash( unsigned seed ) const {
      return PbrCountersKey::hashOf( seed, policyKey, name, {} );
   }
   friend bool operator==( const PbrCountersKey & key, const PbrCountersKeyProbe & probe ) {
      return key.name() == probe.name && key.aclRule().empty() &&
             key.policyKey() == probe.policyKey;
   }
   friend std::strong_ordering operator<=>( const PbrCountersKey & key,
                                            const PbrCountersKeyProbe & probe ) {
      if ( const auto order = key.policyKey() <=> probe.policyKey; order != 0 ) { return order; }
      if ( const auto order = key.name() <=> probe.name; order != 0 ) { return order; }
      return key.aclRule() <=> Lumo::String();
   }
};

VELO_SDK_RPC_EXPORT std::ostream & operator<<( std::ostream & os, const PbrCountersKey & key );

} // namespace VeloSdkRpc

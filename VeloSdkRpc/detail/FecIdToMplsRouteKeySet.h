#pragma once

#include <cstdint>

#include "Mpls/Mpls.h"
#include "Plink/Plink.h"
#include "Quon/Quon.h"
#include "VeloSdkRpc/Export.h"

namespace VeloSdkRpc {

/// The MPLS routes that wait for one next-hop group to get a name: their keys, under the FEC that
/// leads to the group.
///
/// Owner      the index of `MplsRouteHwProgrammingSm`, and whoever it was handed to
/// Thread     event loop only
/// Invariant  `fecId` never changes; every key is there once
class VELO_SDK_RPC_EXPORT FecIdToMplsRouteKeySet final : public Quon::Entity {
 public:
   using MplsRouteKeySet = Quon::HashMap2018< Mpls::RouteKey >;

   explicit FecIdToMplsRouteKeySet( const Plink::Fib::FecId & fecId );
   ~FecIdToMplsRouteKeySet() override;

   const Quon::TypeData & typeData() const override;

   const Plink::Fib::FecId & fecId() const { return fecId_; }

   const MplsRouteKeySet & mplsRouteKeySet() const { return mplsRouteKeySet_; }

   /// @name Changes, O(1) each but the last. A key that is there, or is not, already: no effect
   /// @{
   void mplsRouteKeySetIs( const Mpls::RouteKey & key ) { mplsRouteKeySet_.memberIs( key ); }
   void mplsRouteKeySetDel( const Mpls::RouteKey & key ) { mplsRouteKeySet_.deleteMember( key ); }
   void mplsRouteKeySetDelAll() { mplsRouteKeySet_.memberDelAll(); }
   /// @}

   /// Deletes `key` and every key before it in the set's order. O(deleted).
   void mplsRouteKeySetDelUpToAndIncluding( const Mpls::RouteKey & key );

   /// Takes the keys out of `other`, and its age if that is older. O(the smaller).
   void mplsRouteKeySetMerge( FecIdToMplsRouteKeySet & other );

   /// Since when routes wait here: of two entries of one index the older has the smaller number.
   std::uint64_t age() const { return age_; }
   void ageIs( std::uint64_t age ) { age_ = age; }

 private:
   const Plink::Fib::FecId fecId_;
   MplsRouteKeySet mplsRouteKeySet_;
   std::uint64_t age_ = 0;
};

} // namespace VeloSdkRpc

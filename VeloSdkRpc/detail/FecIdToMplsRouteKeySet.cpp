#include "VeloSdkRpc/detail/FecIdToMplsRouteKeySet.h"

#include <algorithm>
#include <string_view>

namespace VeloSdkRpc {

FecIdToMplsRouteKeySet::FecIdToMplsRouteKeySet( const Plink::Fib::FecId & fecId )
   : fecId_( fecId ) {}

FecIdToMplsRouteKeySet::~FecIdToMplsRouteKeySet() = default;

const Quon::TypeData & FecIdToMplsRouteKeySet::typeData() const {
   static constexpr std::string_view kAttributes[] = { "fecId", "mplsRouteKeySet" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::FecIdToMplsRouteKeySet", kAttributes };
   return kType;
}

void FecIdToMplsRouteKeySet::mplsRouteKeySetDelUpToAndIncluding( const Mpls::RouteKey & key ) {
   const Mpls::RouteKey last = key; // It may be the set's own.
   mplsRouteKeySet_.deleteUpTo( last );
   mplsRouteKeySet_.deleteMember( last );
}

void FecIdToMplsRouteKeySet::mplsRouteKeySetMerge( FecIdToMplsRouteKeySet & other ) {
   mplsRouteKeySet_.mergeBack( other.mplsRouteKeySet_.moveOut() );
   age_ = std::min( age_, other.age_ );
}

} // namespace VeloSdkRpc

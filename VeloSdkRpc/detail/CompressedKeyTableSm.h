#pragma once

#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/detail/OutputState.h"
#include "VeloSdkRpc/detail/PbrCountersKeyCompressionTable.h"
#include "VeloSdkRpc/detail/PolicyMapSm.h"
#include "VeloSdkRpc/detail/RootSm.h"
#include "VeloSdkRpc/detail/ScanState.h"
#include "VeloSdkRpc/detail/TopLevelSm.h"

namespace VeloSdkRpc {

class CompressedKeyTableSm;

namespace IlexCode::CompressedKeyTableSm {

class RootSm3;

class PolicyMapCountersSm4;

using PolicyMapSm4Base = detail::PolicyMapSm<
   PolicyMapCountersSm4, RootSm3, VeloSdkRpc::CompressedKeyTableSm,
   detail::ScanningSm< PolicyMapCountersSm4, RootSm3, PolicyMap::Counters::PolicyMapCounters,
                       Lumo::String > >;

/// One policy map: every class is a leaf.
class VELO_SDK_RPC_EXPORT PolicyMapCountersSm4 final : public PolicyMapSm4Base {
 public:
   static constexpr const char * kName = "PolicyMapCountersSm4";

   PolicyMapCountersSm4( const EnPtr & en, RootSm3 * parent );
   ~PolicyMapCountersSm4() override;

   const Quon::TypeData & typeData() const override;
   void hasNotificationActiveIs( bool active ) { listenIs( active ); }

   void handleClassCounters0( const Lumo::String & name );
   bool classScanned( const Lumo::String & name, detail::FirstException & broken );

   /// Withdraws every short key that was made from this policy map, once events count. Fatal if
   /// `classCounters` changed without this machine hearing of it.
   void doDeleteAll();
};

/// The level of all policy maps.
class VELO_SDK_RPC_EXPORT RootSm3 final
   : public detail::RootSm< RootSm3, VeloSdkRpc::CompressedKeyTableSm, PolicyMapCountersSm4 > {
 public:
   static constexpr const char * kName = "RootSm3";
   static constexpr const char * kTaskName =
      "VeloSdkRpc::CompressedKeyTableSm-RootSm3InputScanTask0";
   static constexpr bool kIgnoresNull = false;

   RootSm3( const EnPtr & en, VeloSdkRpc::CompressedKeyTableSm * parent );
   ~RootSm3() override;

   const Quon::TypeData & typeData() const override;
};

/// How far the scan of the input is; see ScanState.h.
class VELO_SDK_RPC_EXPORT InputSmScanState final : public detail::ScanStateRecord {
 public:
   ~InputSmScanState() override;
   const Quon::TypeData & typeData() const override;
};

/// Which outputs are ready to be written; see OutputState.h.
class VELO_SDK_RPC_EXPORT OutputState final : public detail::OutputStateRecord< 2 > {
 public:
   ~OutputState() override;
   const Quon::TypeData & typeData() const override;

   bool shortKeysShortKeyOutputReady() const { return outputReady( 0 ); }
   void shortKeysShortKeyOutputReadyIs( bool ready ) { outputReadyIs( 0, ready ); }
   bool shortKeysNextKeyOutputReady() const { return outputReady( 1 ); }
   void shortKeysNextKeyOutputReadyIs( bool ready ) { outputReadyIs( 1, ready ); }
};

VELO_SDK_RPC_EXPORT Lumo::Ptr< OutputState > outputStateFactory();
VELO_SDK_RPC_EXPORT Lumo::Ptr< OutputState > OutputStateIs();

} // namespace IlexCode::CompressedKeyTableSm

/// Keeps the key compression table in step with the published counters while nobody watches: every
/// class with counters has a short key, which goes when its counters go.
///
/// Short keys are handed out in increasing order and never reused. Long keys that a previous life
/// left in the table and that the input does not have are not touched, and the novel set never is.
///
/// Owner      the manager
/// Thread     event loop only
class VELO_SDK_RPC_EXPORT CompressedKeyTableSm final
   : public detail::TopLevelSm< CompressedKeyTableSm, IlexCode::CompressedKeyTableSm::RootSm3,
                                IlexCode::CompressedKeyTableSm::InputSmScanState,
                                IlexCode::CompressedKeyTableSm::OutputState > {
   using Base = TopLevelSm;

 public:
   using RootSm3 = IlexCode::CompressedKeyTableSm::RootSm3;
   using OutputState = IlexCode::CompressedKeyTableSm::OutputState;
   using CountersPtr = Lumo::Ptr< const PolicyMap::Counters::CountersData >;

   static constexpr const char * kName = "CompressedKeyTableSm";

   /// Fatal if `root` or `shortKeys` is null.
   CompressedKeyTableSm( const Lumo::Ptr< const PolicyMapTypeCounters > & root,
                         const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys,
                         const Ivx::SmControl & control );
   ~CompressedKeyTableSm() override;

   const Quon::TypeData & typeData() const override;
   void quonDoZombieReactors( bool zombie ) override;

   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys() const { return shortKeys_; }

   const Lumo::Ptr< RootSm3 > & rootSm3() const { return rootSm(); }
   void rootSm3Is( const Lumo::Ptr< const PolicyMapTypeCounters > & en,
                   CompressedKeyTableSm * parent ) {
      rootSmIs( en, parent );
   }
   void rootSm3Del() { rootSmDel(); }

   /// One leaf: the class `name` of the policy map `policyKey` has these counters; absent or null
   /// means none. Does nothing until the initial scan is done. O(1).
   void eventToInput( const PolicyMap::Counters::PolicyMapKey & policyKey,
                      const Lumo::String & name,
                      const Quon::Optional< CountersPtr > & countersPtr );

   void handleShortKeysShortKeyOutputInputReady();
   void handleShortKeysNextKeyOutputInputReady();

 private:
   friend Base;

   void assertArguments();
   void outputsBegin() {}
   void tasksBegin() {}
   void handleOutputs();

   const Lumo::Ptr< PbrCountersKeyCompressionTable > shortKeys_;
};

/// Both make the machine, which scans the input, and turn its notifications on.
VELO_SDK_RPC_EXPORT Lumo::Ptr< CompressedKeyTableSm > compressedKeyTableSmFactory(
   const Lumo::Ptr< const PolicyMap::Counters::PolicyMapTypeCounters > & root,
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys, const Ivx::SmControl & control );
VELO_SDK_RPC_EXPORT Lumo::Ptr< CompressedKeyTableSm >
CompressedKeyTableSmIs( const Lumo::Ptr< const PolicyMap::Counters::PolicyMapTypeCounters > & root,
                        const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys,
                        const Ivx::SmControl & control );

} // namespace VeloSdkRpc

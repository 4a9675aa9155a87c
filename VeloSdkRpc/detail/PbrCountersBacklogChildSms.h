#pragma once

#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/detail/OutputKey.h"
#include "VeloSdkRpc/detail/OutputState.h"
#include "VeloSdkRpc/detail/PolicyMapSm.h"
#include "VeloSdkRpc/detail/RootSm.h"
#include "VeloSdkRpc/detail/ScanState.h"
#include "VeloSdkRpc/detail/ShortKeyMemo.h"

namespace VeloSdkRpc {

class PbrCountersBacklogSm;

namespace IlexCode::PbrCountersBacklogSm {

class ClassCountersSm2;
class PolicyMapCountersSm1;
class RootSm0;

using CountersValue = Quon::Optional< Lumo::Ptr< const PolicyMap::Counters::CountersData > >;

using ClassSm2Base =
   detail::BelowRootSm< RootSm0, VeloSdkRpc::PbrCountersBacklogSm,
                        detail::WatchingSm< ClassCountersSm2, PolicyMapCountersSm1,
                                            PolicyMap::Counters::CountersData > >;

/// One class: every change of its counters is an event, and so is its end. There is one for every
/// live class, so it is kept small.
class VELO_SDK_RPC_EXPORT ClassCountersSm2 final : public ClassSm2Base {
 public:
   ClassCountersSm2( const EnPtr & en, PolicyMapCountersSm1 * parent );
   ~ClassCountersSm2() override;

   const Quon::TypeData & typeData() const override;
   void doInputScan() override;

   /// The whole scan of this level: its one leaf.
   void doInputScan0();
   detail::InputScanState inputScanState0() const { return inputScanState0_; }
   bool inputScanComplete0() const;

   void handleCountData0();
   void handleCountData0Reactor();
   void enDispatch( short attributeId, const void * key );
   void hasNotificationActiveIs( bool active ) { listenIs( active ); }

   /// Tells that the class is gone.
   void doDeleteAll();

 private:
   [[no_unique_address]] detail::ShortKeyMemo shortKeyMemo_;
   detail::InputScanState inputScanState0_ = detail::InputScanState::neverScanned;
};
static_assert( sizeof( ClassCountersSm2 ) <= 72, "with the heap's own word, five to 400 bytes" );

using PolicyMapSm1Base = detail::PolicyMapSm<
   PolicyMapCountersSm1, RootSm0, VeloSdkRpc::PbrCountersBacklogSm,
   detail::ParentSm< PolicyMapCountersSm1, RootSm0, PolicyMap::Counters::PolicyMapCounters,
                     Lumo::String, ClassCountersSm2 > >;

/// One policy map, with a machine for each class below it.
class VELO_SDK_RPC_EXPORT PolicyMapCountersSm1 final : public PolicyMapSm1Base {
 public:
   using CountersDataPtr = Lumo::Ptr< const PolicyMap::Counters::CountersData >;

   static constexpr const char * kName = "PolicyMapCountersSm1";
   static constexpr const char * kChildMap =
      "childSmClassCountersPolicyMapCountersCountersDataPtrConstIs";
   static constexpr bool kIgnoresNull = true;

   PolicyMapCountersSm1( const EnPtr & en, RootSm0 * parent );
   ~PolicyMapCountersSm1() override;

   const Quon::TypeData & typeData() const override;

   void handleClassCounters0( const Lumo::String & name );
   bool classScanned( const Lumo::String & name, detail::FirstException & broken );
   void onChildEvent0( const Lumo::String & name, const CountersValue & countersValue,
                       detail::ShortKeyMemo * memo = nullptr );

   void
   childSmClassCountersPolicyMapCountersCountersDataPtrConstIs( const CountersDataPtr & en,
                                                                PolicyMapCountersSm1 * parent );
   void childSmClassCountersPolicyMapCountersCountersDataPtrConstDel( const Lumo::String & name );
   void childSmClassCountersPolicyMapCountersCountersDataPtrConstDelAll();
   Lumo::Ptr< ClassCountersSm2 >
   childSmClassCountersPolicyMapCountersCountersDataPtrConst( const Lumo::String & name ) const;
};

/// The level of all policy maps; those that are null are passed over.
class VELO_SDK_RPC_EXPORT RootSm0 final
   : public detail::RootSm< RootSm0, VeloSdkRpc::PbrCountersBacklogSm, PolicyMapCountersSm1 > {
 public:
   static constexpr const char * kName = "RootSm0";
   static constexpr const char * kTaskName =
      "VeloSdkRpc::PbrCountersBacklogSm-RootSm0InputScanTask0";
   static constexpr bool kIgnoresNull = true;

   RootSm0( const EnPtr & en, VeloSdkRpc::PbrCountersBacklogSm * parent );
   ~RootSm0() override;

   const Quon::TypeData & typeData() const override;
};

/// How far the scan of the input is; see ScanState.h.
class VELO_SDK_RPC_EXPORT InputSmScanState final : public detail::ScanStateRecord {
 public:
   ~InputSmScanState() override;
   const Quon::TypeData & typeData() const override;
};

/// Which outputs are ready to be written; see OutputState.h.
class VELO_SDK_RPC_EXPORT OutputState final : public detail::OutputStateRecord< 4 > {
 public:
   ~OutputState() override;
   const Quon::TypeData & typeData() const override;

   bool backlogBacklogOutputReady() const { return outputReady( 0 ); }
   void backlogBacklogOutputReadyIs( bool ready ) { outputReadyIs( 0, ready ); }
   bool shortKeysNovelKeyOutputReady() const { return outputReady( 1 ); }
   void shortKeysNovelKeyOutputReadyIs( bool ready ) { outputReadyIs( 1, ready ); }
   bool shortKeysNextKeyOutputReady() const { return outputReady( 2 ); }
   void shortKeysNextKeyOutputReadyIs( bool ready ) { outputReadyIs( 2, ready ); }
   bool shortKeysShortKeyOutputReady() const { return outputReady( 3 ); }
   void shortKeysShortKeyOutputReadyIs( bool ready ) { outputReadyIs( 3, ready ); }
};

VELO_SDK_RPC_EXPORT Lumo::Ptr< OutputState > outputStateFactory();
VELO_SDK_RPC_EXPORT Lumo::Ptr< OutputState > OutputStateIs();

/// Names the key type of the reconciled backlog.
struct BacklogBacklogOutput {
   static constexpr std::string_view kKeyTypeName =
      "VeloSdkRpc::IlexCode::PbrCountersBacklogSm::BacklogBacklogOutputKeyType";
};
/// Names the key type of the reconciled novel set.
struct ShortKeysNovelKeyOutput {
   static constexpr std::string_view kKeyTypeName =
      "VeloSdkRpc::IlexCode::PbrCountersBacklogSm::ShortKeysNovelKeyOutputKeyType";
};
using BacklogBacklogOutputKeyType = detail::OutputKey< BacklogBacklogOutput >;
using ShortKeysNovelKeyOutputKeyType = detail::OutputKey< ShortKeysNovelKeyOutput >;

} // namespace IlexCode::PbrCountersBacklogSm
} // namespace VeloSdkRpc

// What the machines above do needs the whole of the machine that they belong to.
#include "VeloSdkRpc/PbrCountersBacklogSm.h"

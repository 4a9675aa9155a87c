#include "VeloSdkRpc/PbrCountersBacklogSm.h"

namespace VeloSdkRpc::IlexCode::PbrCountersBacklogSm {

// One policy map ----------------------------------------------------------------------------------

PolicyMapCountersSm1::PolicyMapCountersSm1( const EnPtr & en, RootSm0 * parent )
   : PolicyMapSm1Base( en, parent ) {}

PolicyMapCountersSm1::~PolicyMapCountersSm1() = default;

const Quon::TypeData & PolicyMapCountersSm1::typeData() const {
   static constexpr std::string_view kAttributes[] = {
      "parent", "en", "inputScanState0", "inputScanBookmark0",
      "childSmClassCountersPolicyMapCountersCountersDataPtrConst" };
   static constexpr Quon::TypeData kType{
      "VeloSdkRpc::IlexCode::PbrCountersBacklogSm::PolicyMapCountersSm1", kAttributes };
   return kType;
}

void PolicyMapCountersSm1::handleClassCounters0( const Lumo::String & name ) {
   childMaintained( name );
}

bool PolicyMapCountersSm1::classScanned( const Lumo::String & name,
                                         detail::FirstException & broken ) {
   return childScanned( name, broken );
}

void PolicyMapCountersSm1::onChildEvent0( const Lumo::String & name,
                                          const CountersValue & countersValue,
                                          detail::ShortKeyMemo * memo ) {
   if ( RootSm0 * const above = root() ) {
      above->onChildEvent0( smKey(), name, countersValue, memo );
   }
}

void PolicyMapCountersSm1::childSmClassCountersPolicyMapCountersCountersDataPtrConstIs(
   const CountersDataPtr & en, PolicyMapCountersSm1 * parent ) {
   if ( !en ) { Quon::throwMutatorArgNullPointerException( kChildMap, "en" ); }
   LUMO_ASSERT( parent == this );
   childIs( en->name(), en );
}

void PolicyMapCountersSm1::childSmClassCountersPolicyMapCountersCountersDataPtrConstDel(
   const Lumo::String & name ) {
   childDel( name );
}

void PolicyMapCountersSm1::childSmClassCountersPolicyMapCountersCountersDataPtrConstDelAll() {
   childDelAll();
}

Lumo::Ptr< ClassCountersSm2 >
PolicyMapCountersSm1::childSmClassCountersPolicyMapCountersCountersDataPtrConst(
   const Lumo::String & name ) const {
   return child( name );
}

// The root ----------------------------------------------------------------------------------------

RootSm0::RootSm0( const EnPtr & en, VeloSdkRpc::PbrCountersBacklogSm * parent )
   : RootSm( en, parent ) {}

RootSm0::~RootSm0() = default;

const Quon::TypeData & RootSm0::typeData() const {
   static constexpr std::string_view kAttributes[] = {
      "parent",
      "en",
      "task0",
      "inputScanState0",
      "inputScanBookmark0",
      "childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConst" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::IlexCode::PbrCountersBacklogSm::RootSm0",
                                          kAttributes };
   return kType;
}

// Records of state --------------------------------------------------------------------------------

InputSmScanState::~InputSmScanState() = default;

const Quon::TypeData & InputSmScanState::typeData() const {
   static constexpr Quon::TypeData kType{
      "VeloSdkRpc::IlexCode::PbrCountersBacklogSm::InputSmScanState", kAttributes };
   return kType;
}

OutputState::~OutputState() = default;

const Quon::TypeData & OutputState::typeData() const {
   static constexpr std::string_view kAttributes[] = {
      "backlogBacklogOutputReady", "shortKeysNovelKeyOutputReady", "shortKeysNextKeyOutputReady",
      "shortKeysShortKeyOutputReady", "ready" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::IlexCode::PbrCountersBacklogSm::OutputState",
                                          kAttributes };
   return kType;
}

Lumo::Ptr< OutputState > outputStateFactory() { return Lumo::makeNode< OutputState >(); }

Lumo::Ptr< OutputState > OutputStateIs() { return outputStateFactory(); }

} // namespace VeloSdkRpc::IlexCode::PbrCountersBacklogSm

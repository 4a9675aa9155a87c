#include "VeloSdkRpc/detail/CompressedKeyTableSm.h"

namespace VeloSdkRpc::IlexCode::CompressedKeyTableSm {

using Counters = Quon::Optional< VeloSdkRpc::CompressedKeyTableSm::CountersPtr >;

// One policy map ----------------------------------------------------------------------------------

PolicyMapCountersSm4::PolicyMapCountersSm4( const EnPtr & en, RootSm3 * parent )
   : PolicyMapSm4Base( en, parent ) {}

PolicyMapCountersSm4::~PolicyMapCountersSm4() = default;

const Quon::TypeData & PolicyMapCountersSm4::typeData() const {
   static constexpr std::string_view kAttributes[] = { "parent", "en", "inputScanState0",
                                                       "inputScanBookmark0" };
   static constexpr Quon::TypeData kType{
      "VeloSdkRpc::IlexCode::CompressedKeyTableSm::PolicyMapCountersSm4", kAttributes };
   return kType;
}

void PolicyMapCountersSm4::handleClassCounters0( const Lumo::String & name ) {
   if ( !attached() ) { return; }
   LUMO_TRACE( traceHandle(), 8, "k: {}", name );
   const auto * entry = en()->classCounters()[name];
   const Counters countersPtr( entry ? entry->value() : nullptr );
   if ( RootSm3 * const above = root() ) { // A trace sink may have removed the policy map.
      above->onChildEvent0( smKey(), name, countersPtr );
   }
}

bool PolicyMapCountersSm4::classScanned( const Lumo::String & name,
                                         detail::FirstException & broken ) {
   broken.guard( [&] { handleClassCounters0( name ); } );
   return true;
}

void PolicyMapCountersSm4::doDeleteAll() {
   if ( !initialScanDone() ) { return; }
   LUMO_TRACE( traceHandle(), 9, "doDeleteAll" );
   const auto & classCounters = en()->classCounters();
   LUMO_FMASSERT( classCounters.size() == classCountersSize(),
                  "We missed notifications that happened to classCounters before the enclosing "
                  "entity got deleted" );
   const Lumo::Ptr self( this );
   detail::FirstException broken;
   for ( auto at = classCounters.iterator(); at && attached(); at.advance() ) {
      const Lumo::String name = at.key();
      broken.guard( [&] { root()->onChildEvent0( smKey(), name, Counters() ); } );
   }
   broken.rethrow();
}

// The root ----------------------------------------------------------------------------------------

RootSm3::RootSm3( const EnPtr & en, VeloSdkRpc::CompressedKeyTableSm * parent )
   : RootSm( en, parent ) {}

RootSm3::~RootSm3() = default;

const Quon::TypeData & RootSm3::typeData() const {
   static constexpr std::string_view kAttributes[] = {
      "parent",
      "en",
      "task0",
      "inputScanState0",
      "inputScanBookmark0",
      "childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConst" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::IlexCode::CompressedKeyTableSm::RootSm3",
                                          kAttributes };
   return kType;
}

// Records of state --------------------------------------------------------------------------------

InputSmScanState::~InputSmScanState() = default;

const Quon::TypeData & InputSmScanState::typeData() const {
   static constexpr Quon::TypeData kType{
      "VeloSdkRpc::IlexCode::CompressedKeyTableSm::InputSmScanState", kAttributes };
   return kType;
}

OutputState::~OutputState() = default;

const Quon::TypeData & OutputState::typeData() const {
   static constexpr std::string_view kAttributes[] = { "shortKeysShortKeyOutputReady",
                                                       "shortKeysNextKeyOutputReady", "ready" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::IlexCode::CompressedKeyTableSm::OutputState",
                                          kAttributes };
   return kType;
}

Lumo::Ptr< OutputState > outputStateFactory() { return Lumo::makeNode< OutputState >(); }

Lumo::Ptr< OutputState > OutputStateIs() { return outputStateFactory(); }

} // namespace VeloSdkRpc::IlexCode::CompressedKeyTableSm

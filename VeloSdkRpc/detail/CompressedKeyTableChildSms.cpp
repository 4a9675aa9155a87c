#include "VeloSdkRpc/detail/CompressedKeyTableSm.h"

namespace VeloSdkRpc::IlexCode::CompressedKeyTableSm {

using PolicyMap::Counters::PolicyMapCounters;
using Counters = Quon::Optional< VeloSdkRpc::CompressedKeyTableSm::CountersPtr >;

// One policy map ----------------------------------------------------------------------------------

PolicyMapCountersSm4::PolicyMapCountersSm4( const EnPtr & en, RootSm3 * parent )
   : ScanningSm( en, parent ) {}

PolicyMapCountersSm4::~PolicyMapCountersSm4() = default;

const Quon::TypeData & PolicyMapCountersSm4::typeData() const {
   static constexpr std::string_view kAttributes[] = { "parent", "en", "inputScanState0",
                                                       "inputScanBookmark0" };
   static constexpr Quon::TypeData kType{
      "VeloSdkRpc::IlexCode::CompressedKeyTableSm::PolicyMapCountersSm4", kAttributes };
   return kType;
}

void PolicyMapCountersSm4::doInputScan() {
   if ( !initialized() || !attached() ) { return; }
   LUMO_TRACE( traceHandle(), 9, "PolicyMapCountersSm4 doInputScan" );
   doInputScan0();
}

void PolicyMapCountersSm4::doInputScan0() {
   if ( !sliceBegins() ) { return; }
   const Lumo::Ptr self( this );
   auto slice =
      scanSlice( en()->classCounters(), [this]( const Lumo::String & name, auto & broken ) {
         broken.guard( [&] { handleClassCounters0( name ); } );
         return true;
      } );
   classCountersSize_ = en()->classCounters().size();
   if ( !slice.yielded && attached() ) {
      const std::string pass = passEnds( "PolicyMapCountersSm4" );
      LUMO_TRACE( traceHandle(), 9, "{} scan complete. Processed {} children. ", pass,
                  slice.iterations );
   }
   slice.broken.rethrow();
}

void PolicyMapCountersSm4::handleClassCounters0( const Lumo::String & name ) {
   LUMO_TRACE( traceHandle(), 8, "k: {}", name );
   const auto * entry = en()->classCounters()[name];
   const Counters countersPtr( entry ? entry->value() : nullptr );
   root()->onChildEvent0( smKey(), name, countersPtr );
}

void PolicyMapCountersSm4::handleClassCounters0Reactor( const Lumo::String & name ) {
   const Reaction reaction( *this );
   classCountersSize_ = en()->classCounters().size();
   handleClassCounters0( name );
}

void PolicyMapCountersSm4::enDispatch( short attributeId, const void * key ) {
   if ( attributeId == PolicyMapCounters::kClassCounters ) {
      handleClassCounters0Reactor( *static_cast< const Lumo::String * >( key ) );
   }
}

void PolicyMapCountersSm4::doDeleteAll() {
   if ( !initialScanDone() ) { return; }
   LUMO_TRACE( traceHandle(), 9, "doDeleteAll" );
   const auto & classCounters = en()->classCounters();
   LUMO_FMASSERT( classCounters.size() == classCountersSize_,
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

Ivx::Gen::InputStateMachine & PolicyMapCountersSm4::inReactorOwner() { return *root(); }

void PolicyMapCountersSm4::inReactorIs( bool inReactor ) {
   if ( RootSm3 * const shared = root() ) { shared->inReactorIs( inReactor ); }
}

bool PolicyMapCountersSm4::inReactor() const { return root() && root()->inReactor(); }

Lumo::Ptr< VeloSdkRpc::CompressedKeyTableSm > PolicyMapCountersSm4::topLevel() const {
   return root() ? root()->topLevel() : nullptr;
}

bool PolicyMapCountersSm4::shouldYield0() const { return root() && root()->shouldYield0(); }

bool PolicyMapCountersSm4::inTask0() const { return root() && root()->inTask0(); }

bool PolicyMapCountersSm4::inputScanFlag() const {
   return root() && root()->attached() && root()->inputScanFlag();
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

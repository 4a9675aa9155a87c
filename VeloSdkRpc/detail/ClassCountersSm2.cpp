#include "VeloSdkRpc/PbrCountersBacklogSm.h"

/// The machine of one class, and the short way that its usual event takes:
///
///    counters changed --record pending?---> yes: it is counted
///                     --short key known?--> yes: the record is filed at once
///                                           no:  through the machines above to the rules
///
/// With a million classes the rules would look up a long key, take references and copy values
/// for every event, to come to the same record. They are still asked whenever something else may
/// have to be done, or told: see `isCommon`.

namespace VeloSdkRpc {

bool PbrCountersBacklogSm::isCommon( const detail::ShortKeyMemo & memo ) const {
   // A memo is told nothing before the initial scan is done.
   return memo.isGood( *shortKeys_ ) && !backlogBacklogOutputReconciling() &&
          traceHandle().levels() == 0;
}

namespace IlexCode::PbrCountersBacklogSm {

using PolicyMap::Counters::CountersData;

ClassCountersSm2::ClassCountersSm2( const EnPtr & en, PolicyMapCountersSm1 * parent )
   : ClassSm2Base( en, parent ) {}

ClassCountersSm2::~ClassCountersSm2() = default;

const Quon::TypeData & ClassCountersSm2::typeData() const {
   static constexpr std::string_view kAttributes[] = { "parent", "en", "inputScanState0" };
   static constexpr Quon::TypeData kType{
      "VeloSdkRpc::IlexCode::PbrCountersBacklogSm::ClassCountersSm2", kAttributes };
   return kType;
}

void ClassCountersSm2::doInputScan() {
   if ( !initialized() || !attached() ) { return; }
   LUMO_TRACE( traceHandle(), 9, "ClassCountersSm2 doInputScan" );
   doInputScan0();
}

void ClassCountersSm2::doInputScan0() {
   if ( !detail::scanIsDue( *this ) ) { return; }
   const detail::InputScanState ended = detail::stateAfterPass( initialScanDone() );
   inputScanState0_ = ended;
   handleCountData0();
   if ( !attached() ) { return; }
   LUMO_TRACE( traceHandle(), 9, "{} scan complete. ",
               detail::passName( "ClassCountersSm2", ended ) );
}

bool ClassCountersSm2::inputScanComplete0() const {
   return detail::scanIsComplete( inputScanState0_, initialScanDone() );
}

void ClassCountersSm2::handleCountData0() {
   if ( !attached() ) { return; }
   assertEn();
   parent()->onChildEvent0( en()->name(), CountersValue( en() ), &shortKeyMemo_ );
}

void ClassCountersSm2::doDeleteAll() {
   if ( !attached() ) { return; }
   LUMO_TRACE( traceHandle(), 9, "doDeleteAll" );
   assertEn();
   parent()->onChildEvent0( en()->name(), CountersValue() );
}

// Events ------------------------------------------------------------------------------------------

void ClassCountersSm2::handleCountData0Reactor() {
   if ( !attached() ) { return; }
   const Reaction reaction( *this );
   handleCountData0();
}

/// Whoever is told of a record may drop any machine: after `backlogIs` comes nothing of this one.
void ClassCountersSm2::enDispatch( short attributeId, const void * ) {
   if ( attributeId != CountersData::kCountData ) { return; }
   const VeloSdkRpc::PbrCountersBacklogSm & top = *root()->parent();
   if ( !top.isCommon( shortKeyMemo_ ) ) {
      handleCountData0Reactor();
   } else if ( shortKeyMemo_.isPending( *top.backlog() ) ) {
      top.backlog()->filedAgain();
   } else {
      const InReactor inReactor( *this );
      top.backlog()->backlogIs( shortKeyMemo_, { parent()->smKey(), en()->name() }, en() );
   }
}

} // namespace IlexCode::PbrCountersBacklogSm
} // namespace VeloSdkRpc

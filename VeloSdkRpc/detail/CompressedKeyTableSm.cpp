#include "VeloSdkRpc/detail/CompressedKeyTableSm.h"

#include "VeloSdkRpc/detail/IlexPrint.h"

namespace VeloSdkRpc {

using detail::ilexPrint;

CompressedKeyTableSm::CompressedKeyTableSm(
   const Lumo::Ptr< const PolicyMapTypeCounters > & root,
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys, const Ivx::SmControl & control )
   : Base( root, control ), shortKeys_( shortKeys ) {
   handleInitialized();
}

CompressedKeyTableSm::~CompressedKeyTableSm() {
   reactionsEnd();
   inputSmScanStateDel();
   outputStateDel();
   rootSm3Del();
   qtHandleDel();
}

const Quon::TypeData & CompressedKeyTableSm::typeData() const {
   static constexpr std::string_view kAttributes[] = { "root",
                                                       "shortKeys",
                                                       "inputSmScanState",
                                                       "outputState",
                                                       "rootSm3",
                                                       "handleShortKeysShortKeyOutputInputReady",
                                                       "handleShortKeysNextKeyOutputInputReady",
                                                       "doDeleteAll",
                                                       "ilexControl",
                                                       "synchronous",
                                                       "defaultSynchronous",
                                                       "scheduler",
                                                       "priority",
                                                       "idle",
                                                       "ready",
                                                       "initialScanDone",
                                                       "handleInitialScanDone",
                                                       "initialized",
                                                       "handleInitialized" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::CompressedKeyTableSm", kAttributes };
   return kType;
}

void CompressedKeyTableSm::quonDoZombieReactors( bool zombie ) {
   Base::quonDoZombieReactors( zombie );
}

void CompressedKeyTableSm::assertArguments() {
   LUMO_ASSERT( shortKeys() && "Pointer SM args cannot be null unless they are marked Optional" );
}

// Events ------------------------------------------------------------------------------------------

void CompressedKeyTableSm::eventToInput( const PolicyMap::Counters::PolicyMapKey & policyKey,
                                         const Lumo::String & name,
                                         const Quon::Optional< CountersPtr > & countersPtr ) {
   if ( !initialScanDone() ) { return; }
   LUMO_TRACE( traceHandle(), 7,
               "input = from( root.policyMapCounters[].classCounters[] ): "
               "policyKey={} name={} countersPtr={}",
               ilexPrint( policyKey ), ilexPrint( name ), ilexPrint( countersPtr ) );
   const PbrCountersKey countersKey( policyKey, name, {} );
   const auto * entry = shortKeys_->shortKey()[countersKey];
   const bool hasCounters = countersPtr && *countersPtr;
   if ( hasCounters == ( entry != nullptr ) ) {
      LUMO_TRACE( traceHandle(), 6,
                  "filter( ( bool( countersPtr ) != bool( shortKey ) ) ) failed, "
                  "terminating pipeline" );
      return;
   }
   if ( hasCounters ) {
      const std::uint64_t shortKey = shortKeys_->nextKey() + 1;
      LUMO_TRACE( traceHandle(), 7, "into( shortKeys.nextKey ): inserting value={}", shortKey );
      shortKeys_->nextKeyIs( shortKey );
      LUMO_TRACE( traceHandle(), 7,
                  "into( shortKeys.shortKey[ countersKey ] ): inserting k1={}, value={}",
                  ilexPrint( countersKey ), shortKey );
      shortKeys_->shortKeyIs( countersKey, shortKey );
   } else {
      LUMO_TRACE( traceHandle(), 7, "into( shortKeys.shortKey[ countersKey ] ): deleting k1={}",
                  ilexPrint( countersKey ) );
      shortKeys_->shortKeyDel( countersKey );
   }
}

// Outputs -----------------------------------------------------------------------------------------

void CompressedKeyTableSm::handleOutputs() {
   handleShortKeysShortKeyOutputInputReady();
   if ( initialized() ) { handleShortKeysNextKeyOutputInputReady(); }
}

void CompressedKeyTableSm::handleShortKeysShortKeyOutputInputReady() {
   outputReadyWhenScanned( "shortKeysShortKeyOutput", &OutputState::shortKeysShortKeyOutputReady,
                           &OutputState::shortKeysShortKeyOutputReadyIs );
}

void CompressedKeyTableSm::handleShortKeysNextKeyOutputInputReady() {
   outputReadyWhenScanned( "shortKeysNextKeyOutput", &OutputState::shortKeysNextKeyOutputReady,
                           &OutputState::shortKeysNextKeyOutputReadyIs );
}

Lumo::Ptr< CompressedKeyTableSm > compressedKeyTableSmFactory(
   const Lumo::Ptr< const PolicyMap::Counters::PolicyMapTypeCounters > & root,
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys, const Ivx::SmControl & control ) {
   auto made = Lumo::makeNode< CompressedKeyTableSm >( root, shortKeys, control );
   made->hasNotificationActiveIs( true );
   return made;
}

Lumo::Ptr< CompressedKeyTableSm >
CompressedKeyTableSmIs( const Lumo::Ptr< const PolicyMap::Counters::PolicyMapTypeCounters > & root,
                        const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys,
                        const Ivx::SmControl & control ) {
   return compressedKeyTableSmFactory( root, shortKeys, control );
}

} // namespace VeloSdkRpc

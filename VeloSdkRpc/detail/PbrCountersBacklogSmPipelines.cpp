#include "VeloSdkRpc/PbrCountersBacklogSm.h"

#include "VeloSdkRpc/detail/IlexPrint.h"

/// The rules of the backlog machine: what one event does. The names and texts are those of the
/// dataflow program; pipelines 0 and 1 split on the presence of counters, 4 and 3 on the presence
/// of a short key, 5 and 2 join them again.

namespace VeloSdkRpc {

using detail::ilexPrint;

namespace {

constexpr int kRuleTrace = 7;

} // namespace

void PbrCountersBacklogSm::eventToInput( const PolicyMapKey & policyKey, const Lumo::String & name,
                                         const CountersValue & countersValue,
                                         detail::ShortKeyMemo * memo ) {
   if ( !initialScanDone() ) { return; }
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "input = from( root.policyMapCounters[].classCounters[].{{ countData }} ): "
               "policyKey={} name={} countersValue={}",
               ilexPrint( policyKey ), ilexPrint( name ), ilexPrint( countersValue ) );
   const PbrCountersKey countersKey( policyKey, name, {} );
   ShortKey currentKey;
   if ( memo && memo->isGood( *shortKeys_ ) ) {
      currentKey = memo->shortKey();
   } else if ( const auto * entry = shortKeys_->shortKey()[countersKey] ) {
      currentKey = entry->value();
      if ( memo ) { memo->remember( *shortKeys_, *currentKey ); }
   }
   if ( countersValue ) {
      eventToIvx_pipeline0( countersValue, countersKey, currentKey );
   } else {
      eventToIvx_pipeline1( countersValue, countersKey, currentKey );
   }
}

void PbrCountersBacklogSm::eventToIvx_pipeline0( const CountersValue & countersValue,
                                                 const PbrCountersKey & countersKey,
                                                 const ShortKey & currentKey ) {
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "Line 20: merge( input ): countersValue={} countersKey={} currentKey={}",
               ilexPrint( countersValue ), ilexPrint( countersKey ), ilexPrint( currentKey ) );
   if ( currentKey ) {
      eventToIvx_pipeline4( countersValue, countersKey, currentKey );
   } else {
      eventToIvx_pipeline3( countersValue, countersKey );
   }
}

void PbrCountersBacklogSm::eventToIvx_pipeline3( const CountersValue & countersValue,
                                                 const PbrCountersKey & countersKey ) {
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "Line 22: merge( ivx_pipeline0 ): countersValue={} countersKey={}",
               ilexPrint( countersValue ), ilexPrint( countersKey ) );
   const std::uint64_t nextKey = shortKeys_->nextKey() + 1;
   LUMO_TRACE( traceHandle(), kRuleTrace, "into( shortKeys.nextKey ): inserting value={}",
               ilexPrint( nextKey ) );
   shortKeys_->nextKeyIs( nextKey );
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "into( shortKeys.shortKey[ countersKey ] ): inserting k1={}, value={}",
               ilexPrint( countersKey ), ilexPrint( nextKey ) );
   shortKeys_->shortKeyIs( countersKey, nextKey );
   if ( shortKeysNovelKeyOutputReconciling() ) {
      shortKeysNovelKeyOutputSeenIs( ShortKeysNovelKeyOutputKeyType( nextKey ) );
   }
   LUMO_TRACE( traceHandle(), kRuleTrace, "into( shortKeys.novelKey[ nextKey ] ): inserting k1={}",
               ilexPrint( nextKey ) );
   shortKeys_->novelKeyIs( nextKey );
   eventToIvx_pipeline5( nextKey, countersValue, countersKey );
}

void PbrCountersBacklogSm::eventToIvx_pipeline4( const CountersValue & countersValue,
                                                 const PbrCountersKey & countersKey,
                                                 const ShortKey & currentKey ) {
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "Line 22: merge( ivx_pipeline0 ): countersValue={} countersKey={} currentKey={}",
               ilexPrint( countersValue ), ilexPrint( countersKey ), ilexPrint( currentKey ) );
   eventToIvx_pipeline5( *currentKey, countersValue, countersKey );
}

void PbrCountersBacklogSm::eventToIvx_pipeline5( const std::uint64_t & key,
                                                 const CountersValue & countersValue,
                                                 const PbrCountersKey & countersKey ) {
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "Line 22: merge( ivx_pipeline3, ivx_pipeline4 ): "
               "key={} countersValue={} countersKey={}",
               ilexPrint( key ), ilexPrint( countersValue ), ilexPrint( countersKey ) );
   eventToIvx_pipeline2( key, false, countersValue, countersKey );
}

void PbrCountersBacklogSm::eventToIvx_pipeline1( const CountersValue & countersValue,
                                                 const PbrCountersKey & countersKey,
                                                 const ShortKey & currentKey ) {
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "Line 20: merge( input ): countersValue={} countersKey={} currentKey={}",
               ilexPrint( countersValue ), ilexPrint( countersKey ), ilexPrint( currentKey ) );
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "into( shortKeys.shortKey[ countersKey ] ): deleting k1={}",
               ilexPrint( countersKey ) );
   shortKeys_->shortKeyDel( countersKey );
   eventToIvx_pipeline2( *currentKey, true, countersValue, countersKey );
}

void PbrCountersBacklogSm::eventToIvx_pipeline2( const std::uint64_t & key, const bool & isDeleted,
                                                 const CountersValue & countersValue,
                                                 const PbrCountersKey & countersKey ) {
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "Line 20: merge( ivx_pipeline5, ivx_pipeline1 ): "
               "key={} isDeleted={} countersValue={} countersKey={}",
               ilexPrint( key ), ilexPrint( isDeleted ), ilexPrint( countersValue ),
               ilexPrint( countersKey ) );
   const PbrCounters value( key, countersKey, countersValue ? *countersValue : PbrCounters::Data(),
                            isDeleted );
   writeBacklog( key, &value );
}

void PbrCountersBacklogSm::writeBacklog( std::uint64_t key, const PbrCounters * value ) {
   if ( backlogBacklogOutputReconciling() ) {
      backlogBacklogOutputSeenIs( BacklogBacklogOutputKeyType( key ) );
   }
   if ( !value ) {
      LUMO_TRACE( traceHandle(), kRuleTrace, "into( backlog.backlog[ key ] ): deleting k1={}",
                  ilexPrint( key ) );
      backlog_->backlogDel( key );
      return;
   }
   LUMO_TRACE( traceHandle(), kRuleTrace,
               "into( backlog.backlog[ key ] ): inserting k1={}, value={}", ilexPrint( key ),
               ilexPrint( *value ) );
   LUMO_FMASSERT( value->shortKey() == key,
                  "In \"into( backlog.backlog[ key ] )\" the value inserted in the into statement "
                  "has internal key: {}, but the key specified in the into is: {}",
                  value->shortKey(), key );
   backlog_->backlogIs( *value );
}

} // namespace VeloSdkRpc

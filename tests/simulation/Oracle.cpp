#include "Oracle.h"

namespace VeloSdkRpc::simulation {

Contents coldStart( const TreeRoot & root, test::Loop & loop ) {
   const auto consumer = Lumo::makeNode< test::ReconstructingConsumer >();
   const std::unique_ptr< Stream > stream = managedStream( root, 0 );
   stream->start( consumer );
   loop.runUntilIdle();
   return consumer->contents();
}

Name ToldKeys::nameOf( const PbrCounters & record ) {
   return { std::string( record.longKey().policyKey().name().view() ),
            std::string( record.longKey().name().view() ) };
}

void ToldKeys::told( const PbrCounters & record, PbrCountersEncodingFlags flags ) const {
   require( flags.deleteKey() == record.deletedKey(), "a record's deletion is not in its flags" );
   require( record.deletedKey() == !record.data(), "a record has counters exactly if it is none of "
                                                   "a deletion" );
   const auto known = names_.find( record.shortKey() );
   require( known == names_.end() || known->second == nameOf( record ),
            "a short key stands for two long keys" );
   if ( !streaming_ ) { return; }
   const bool longKeyIsDue =
      record.shortKey() > lastAtStart_ && !toldWithLongKey_.contains( record.shortKey() );
   require( flags.encodeLongKey() || !longKeyIsDue, "a new key was told without its long key" );
   require( !flags.encodeLongKey() || longKeyIsDue, "a long key was told twice" );
}

void ToldKeys::took( const PbrCounters & record, PbrCountersEncodingFlags flags ) {
   names_.emplace( record.shortKey(), nameOf( record ) );
   if ( flags.encodeLongKey() ) { toldWithLongKey_.insert( record.shortKey() ); }
}

} // namespace VeloSdkRpc::simulation

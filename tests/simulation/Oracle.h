#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>

#include "Stream.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/Loop.h"

/// What must hold whatever happens; who breaks it is told by `Violation`.
namespace VeloSdkRpc::simulation {

/// A promise of the stream was broken. The text is one per promise, so that two scripts can be said
/// to fail alike.
struct Violation : std::logic_error {
   using std::logic_error::logic_error;
};

inline void require( bool held, const char * otherwise ) {
   if ( !held ) { throw Violation( otherwise ); }
}

using Name = test::CountersTree::Name;
using Contents = std::map< Name, std::uint64_t >;

/// What a client that has just come, to an agent that has just begun, learns of the tree.
Contents coldStart( const TreeRoot & root, test::Loop & loop );

/// What was told of one table's short keys, to whomever.
class ToldKeys {
 public:
   /// The stream begins: what appears from here on is told with its long key first.
   void streamBegins( std::uint64_t lastShortKey ) {
      streaming_ = true;
      lastAtStart_ = lastShortKey;
      toldWithLongKey_.clear();
   }
   /// Nobody can count on long keys any more.
   void streamEnds() { streaming_ = false; }

   /// Checks one record as it is told; `took` what the consumer made of it.
   void told( const PbrCounters & record, PbrCountersEncodingFlags flags ) const;
   void took( const PbrCounters & record, PbrCountersEncodingFlags flags );

   static Name nameOf( const PbrCounters & record );

 private:
   std::map< std::uint64_t, Name > names_; ///< What every short key has ever stood for.
   bool streaming_ = false;
   std::uint64_t lastAtStart_ = 0;
   std::set< std::uint64_t > toldWithLongKey_;
};

} // namespace VeloSdkRpc::simulation

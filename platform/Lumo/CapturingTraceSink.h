#pragma once

#include <string>
#include <vector>

#include "Lumo/Trace.h"

namespace Lumo {

/// Records every message of a scope, so that tests can assert fixed texts. Scopes may be nested:
/// the inner one hears. For tests in which one thread traces.
///
///    Lumo::CapturingTraceSink traces( "*", Lumo::traceLevels( 0, 9 ) );
///    ...
///    EXPECT_TRUE( traces.has( 7, "Processing short key 1 with flags ..." ) );
class CapturingTraceSink final : public TraceSink {
 public:
   /// One trace message, as it was emitted.
   struct Message {
      std::string handle;
      int level;
      std::string function;
      std::string text;
   };

   /// Enables `levels` of the handle called `name` (or "*") for the life of this object, then puts
   /// all levels back.
   explicit CapturingTraceSink( std::string_view name = "*",
                                std::uint32_t levels = traceLevels( 0, 9 ) )
      : before_( traceSinkIs( this ) ) {
      traceLevelsIs( name, levels );
   }
   ~CapturingTraceSink() override { traceSinkIs( before_ ); }

   CapturingTraceSink( const CapturingTraceSink & ) = delete;
   CapturingTraceSink & operator=( const CapturingTraceSink & ) = delete;

   void emit( const TraceRecord & record ) override {
      messages.push_back( { std::string( record.handle ), record.level,
                            record.where.function_name(), std::string( record.text ) } );
   }

   bool has( int level, std::string_view text ) const { return count( level, text ) != 0; }
   std::size_t count( int level, std::string_view text ) const {
      std::size_t found = 0;
      for ( const Message & m : messages ) { found += m.level == level && m.text == text; }
      return found;
   }

   std::vector< Message > messages;

 private:
   const TraceLevelsScope levelsBefore_;
   TraceSink * before_;
};

} // namespace Lumo

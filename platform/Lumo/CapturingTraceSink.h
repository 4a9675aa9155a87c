#pragma once

#include <string>
#include <vector>

#include "Lumo/Trace.h"

namespace Lumo {

/// Records every message of a scope, so that tests can assert fixed texts.
///
///    Lumo::CapturingTraceSink traces( "*", Lumo::traceLevels( 0, 9 ) );
///    ...
///    EXPECT_TRUE( traces.has( 7, "Processing short key 1 with flags ..." ) );
class CapturingTraceSink final : public TraceSink {
 public:
   struct Message {
      std::string handle;
      int level;
      std::string function;
      std::string text;
   };

   /// Enables `levels` of the handle called `name` (or "*") for the life of this object.
   explicit CapturingTraceSink( std::string_view name = "*",
                                std::uint32_t levels = traceLevels( 0, 9 ) )
      : before_( traceSinkIs( this ) ), name_( name ) {
      traceLevelsIs( name_, levels );
   }
   ~CapturingTraceSink() override {
      traceLevelsIs( name_, 0 );
      traceSinkIs( before_ );
   }

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
   TraceSink * before_;
   std::string name_;
};

} // namespace Lumo

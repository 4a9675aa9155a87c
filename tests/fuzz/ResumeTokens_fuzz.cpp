// Clients of the PBR counters stream that come back with any token. The input is a script of single
// bytes: what happens, and what is wrong with the token.

#include <string>

#include "agent/stream/ResumeToken.h"
#include "agent/test/StreamWorld.h"
#include "tests/fuzz/Fuzz.h"

namespace Fuzz::ResumeTokens {
namespace {

using namespace VeloAgent;
using namespace VeloAgent::test;

class Story {
 public:
   explicit Story( std::string_view script ) : script_( script ) {}

   void run() {
      honest_.begins();
      while ( !script_.empty() ) { step(); }
      world_.settle( honest_ );
      require( honest_.faults.empty(), "a client that forges nothing sees no fault" );
      require( honest_.contents() == world_.tree.contents(),
               "a client that forges nothing knows the tree in the end" );
   }

 private:
   void step() {
      const std::string number = std::to_string( next() % 4 );
      switch ( next() % 6 ) {
      case 0:
         world_.tree.addClass( "policy", number, next() );
         break;
      case 1:
         world_.tree.removeClass( "policy", number );
         break;
      case 2:
         world_.settle( honest_ );
         break;
      case 3:
         world_.loop.runOne();
         honest_.takes();
         break;
      case 4:
         honest_.returns( next() % 3 );
         break;
      default:
         forgery();
      }
   }

   /// Somebody calls with what is nearly the token of another, who may be there or not. No token
   /// but the right one of a stream goes on with that stream.
   void forgery() {
      std::string token = honest_.knows().token;
      for ( unsigned n = next() % 4; n > 0 && !token.empty(); --n ) {
         const unsigned at = next();
         token[at % token.size()] = static_cast< char >( token[at % token.size()] ^ next() );
      }
      token.resize( token.size() - std::min< std::size_t >( token.size(), next() % 2 ) );
      const auto was = ResumeToken::from( honest_.knows().token );
      const auto forged = ResumeToken::from( token );
      if ( was && forged && was->stream == forged->stream ) { return; } // That is a client's right.
      TestCall call;
      PbrCountersWatchRequest request;
      request.set_resume_token( token );
      world_.streams.open( call, request );
      const auto first = call.take();
      require( !first || first->opened().outcome() != Opened::OUTCOME_RESUMED,
               "nobody goes on with the stream of another" );
   }

   unsigned next() {
      if ( script_.empty() ) { return 0; }
      const auto byte = static_cast< unsigned char >( script_.front() );
      script_.remove_prefix( 1 );
      return byte;
   }

   std::string_view script_;
   StreamWorld world_;
   StreamClient honest_{ world_.streams };
};

void run( std::string_view input ) {
   Story( input ).run();
   if ( const auto token = ResumeToken::from( input ) ) {
      require( token->bytes() == input, "a token has one spelling" );
   }
}

const Target target( "ResumeTokens", run );

} // namespace
} // namespace Fuzz::ResumeTokens

#include "Isolated.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>

namespace VeloSdkRpc::simulation {
namespace {

std::string outcomeOf( const std::function< std::string() > & work ) {
   try {
      return work();
   } catch ( const std::exception & what ) { return what.what(); }
}

[[noreturn]] void endChild( int pipe, const std::string & outcome ) {
   const bool written =
      ::write( pipe, outcome.data(), outcome.size() ) == static_cast< ssize_t >( outcome.size() );
   ::_exit( written ? EXIT_SUCCESS : EXIT_FAILURE );
}

std::string readToTheEnd( int pipe ) {
   std::string text;
   char buffer[512];
   for ( ssize_t got; ( got = ::read( pipe, buffer, sizeof buffer ) ) > 0; ) {
      text.append( buffer, static_cast< std::size_t >( got ) );
   }
   return text;
}

} // namespace

std::string failureOf( const std::function< std::string() > & work, unsigned seconds ) {
   int ends[2];
   if ( ::pipe( ends ) != 0 ) { throw std::runtime_error( "no pipe" ); }
   const pid_t child = ::fork();
   if ( child < 0 ) { throw std::runtime_error( "no process" ); }
   if ( child == 0 ) {
      ::close( ends[0] );
      ::alarm( seconds );
      endChild( ends[1], outcomeOf( work ) );
   }
   ::close( ends[1] );
   std::string outcome = readToTheEnd( ends[0] );
   ::close( ends[0] );
   int status = 0;
   ::waitpid( child, &status, 0 );
   if ( WIFSIGNALED( status ) ) {
      return WTERMSIG( status ) == SIGALRM
                ? std::string( "it did not end" )
                : std::string( "crash: " ) + ::strsignal( WTERMSIG( status ) );
   }
   if ( WEXITSTATUS( status ) != EXIT_SUCCESS && outcome.empty() ) {
      outcome = "exit " + std::to_string( WEXITSTATUS( status ) );
   }
   return outcome;
}

} // namespace VeloSdkRpc::simulation

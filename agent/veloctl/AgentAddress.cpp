#include "agent/veloctl/AgentAddress.h"

#include "agent/rpc/ListenAddress.h"
#include "agent/veloctl/Failures.h"

#include <algorithm>
#include <fmt/format.h>
#include <sys/stat.h>
#include <variant>
#include <vector>

namespace VeloCtl {

namespace {

bool isSocket( const std::string & path ) {
   struct stat status{};
   return ::stat( path.c_str(), &status ) == 0 && S_ISSOCK( status.st_mode );
}

std::string defaultAddress() {
   const std::vector< std::string > paths = VeloAgent::defaultSockets();
   const auto found = std::find_if( paths.begin(), paths.end(), isSocket );
   if ( found != paths.end() ) { return "unix:" + *found; }
   throw Failure( ExitCode::unavailable,
                  fmt::format( "no agent listens at {}: start velo-agent, or say where it is with "
                               "--agent ADDRESS",
                               fmt::join( paths, " or " ) ) );
}

} // namespace

AgentAddress checked( AgentAddress given ) {
   if ( given.address.empty() ) { given.address = defaultAddress(); }
   const auto address = VeloAgent::listenAddressFrom( given.address );
   if ( !address || std::holds_alternative< VeloAgent::Nowhere >( *address ) ) {
      throw WrongUse( fmt::format( "--agent: \"{}\" is not unix:PATH or HOST:PORT, for example "
                                   "unix:/run/velo-agent/agent.sock",
                                   given.address ) );
   }
   const bool local = std::holds_alternative< VeloAgent::UnixAddress >( *address );
   const bool secured = !given.ca.empty() || !given.certificate.empty() || !given.key.empty();
   if ( local && secured ) {
      throw WrongUse( "--ca, --cert and --key are of use only with --agent HOST:PORT" );
   }
   if ( given.certificate.empty() != given.key.empty() ) {
      throw WrongUse( "--cert and --key belong together: give both or none" );
   }
   if ( given.ca.empty() && secured ) {
      throw WrongUse( "--cert and --key need --ca FILE, to know the agent by" );
   }
   return given;
}

} // namespace VeloCtl

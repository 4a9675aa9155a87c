#include "agent/Options.h"

#include "agent/OptionsParser.h"
#include "agent/rpc/ListenAddress.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <functional>
#include <string_view>
#include <utility>

namespace VeloAgent {

namespace {

constexpr const char * kAbout =
   "Streams policy-based-routing counters: one line per record, and one per push.\n"
   "Keys are compressed: a record's long key is sent when the key is new to this stream.\n"
   "Serves clients over RPC, see --listen.";

constexpr const char * kFooter = R"(
Exit codes: 0 ended by a signal or a bound; 1 the source could not be read or the server could not
listen at start-up, or the output could not be written; 2 an option was wrong.)";

constexpr std::array< std::string_view, 6 > kFamilies = { "ip",  "ip6",    "inet",
                                                          "arp", "bridge", "netdev" };

constexpr std::array< OptionsParser::Word< SourceKind >, 3 > kSources = {
   { { "synthetic", SourceKind::synthetic },
     { "nftables", SourceKind::nftables },
     { "none", SourceKind::none } } };
constexpr std::array< OptionsParser::Word< OutputFormat >, 3 > kFormats = {
   { { "json", OutputFormat::json },
     { "text", OutputFormat::text },
     { "none", OutputFormat::none } } };

constexpr std::uint64_t kMostClasses = 10'000'000;
constexpr std::uint64_t kMostMilliseconds = 1'000ULL * 3600 * 24 * 365;
constexpr std::uint64_t kMostKeepalive = 1'000ULL * 3600 * 24;
constexpr std::uint32_t kMostConnections = 100'000;

NftTableName tableFrom( const std::string & given ) {
   const std::size_t slash = given.find( '/' );
   if ( slash == std::string::npos || slash + 1 == given.size() ) {
      OptionsParser::refuse( "--table", given, "FAMILY/NAME, for example inet/filter" );
   }
   const std::string family = given.substr( 0, slash );
   if ( std::find( kFamilies.begin(), kFamilies.end(), family ) == kFamilies.end() ) {
      throw OptionsError( fmt::format( "--table: unknown family \"{}\": FAMILY is one of {}",
                                       family, fmt::join( kFamilies, ", " ) ) );
   }
   return { .family = family, .name = given.substr( slash + 1 ) };
}

/// The options of the agent: declared in groups, then checked together.
class AgentOptions {
 public:
   AgentOptions() : parser_( kAbout, kFooter, std::string( "velo-agent " ) + VELO_AGENT_VERSION ) {
      declareStream();
      declareSynthetic();
      declareNftables();
      declareServer();
      declareTls();
      declareStreams();
      declareObservation();
   }

   Options parse( const std::vector< std::string > & arguments ) {
      options_.answer = parser_.parse( arguments );
      if ( !options_.answer ) { checkTogether(); }
      return options_;
   }

 private:
   void declareStream() {
      parser_.choice( "--source",
                      "Where the counters come from (synthetic); none: from RPC clients only",
                      options_.source, kSources );
      parser_.choice( "--format",
                      "Lines for programs or for people (json); none: no lines, and what is to be "
                      "noted goes to standard error",
                      options_.format, kFormats );
      parser_.number(
         "--duration", "MS", "End by itself after this time", 1, kMostMilliseconds,
         [this]( std::uint64_t n ) { options_.duration = std::chrono::milliseconds( n ); } );
      parser_.number( "--max-records", "N", "End by itself after so many records", 1, UINT64_MAX,
                      [this]( std::uint64_t n ) { options_.maxRecords = n; } );
   }

   void declareSynthetic() {
      parser_.groupIs( "With --source synthetic" );
      SyntheticOptions & synthetic = options_.synthetic;
      parser_.count( "--policies", "N", "Policy maps (10)", 1, 10'000'000, synthetic.policies );
      parser_.count( "--classes", "N", "Classes of each policy map (10)", 1, 10'000'000,
                     synthetic.classes );
      parser_.count( "--rate", "N", "Changes per second (100); 0: none after all appeared", 0,
                     10'000'000, synthetic.changesPerSecond );
      parser_.count( "--churn", "PERCENT",
                     "Removals among the changes (5); what is gone comes back later", 0, 100,
                     synthetic.churnPercent );
      parser_.number( "--seed", "N", "Another seed is another sequence of changes (1)", 0,
                      UINT64_MAX, [this]( std::uint64_t n ) { options_.synthetic.seed = n; } );
   }

   void declareNftables() {
      parser_.groupIs( "With --source nftables" );
      parser_.text( "--table", "FAMILY/NAME",
                    fmt::format( "The table to read; FAMILY: {}", fmt::join( kFamilies, ", " ) ),
                    [this]( const std::string & given ) { options_.table = tableFrom( given ); } );
      time( "--interval", "Time from one reading to the next", kMostMilliseconds,
            options_.interval );
   }

   void declareServer() {
      parser_.groupIs( "Serving clients" );
      const auto listen = [this]( const std::string & given ) {
         if ( !listenAddressFrom( given ) ) {
            OptionsParser::refuse( "--listen", given, kListenAddressForms );
         }
         options_.rpc.listen = given;
      };
      parser_.text( "--listen", "ADDRESS",
                    "unix:PATH, HOST:PORT or none (unix:/run/velo-agent/agent.sock if that "
                    "directory can be written, else velo-agent.sock in XDG_RUNTIME_DIR)",
                    listen );
      RpcLimits & limits = options_.rpc.limits;
      limit( "--max-message", "BYTES", "The largest request", 1024, 1 << 30, limits.messageBytes );
      limit( "--max-streams", "N", "Calls at a time, of one connection", 1, 1'000'000,
             limits.streams );
      limit( "--max-connections", "N", "Connections at a time", 1, kMostConnections,
             limits.connections );
      time( "--keepalive-time",
            "A client in a call, silent for so long, is asked for a sign of life", kMostKeepalive,
            limits.keepaliveTime );
      time( "--keepalive-timeout", "Time for that sign, before the connection is closed",
            kMostKeepalive, limits.keepaliveTimeout );
   }

   void declareTls() {
      parser_.groupIs( "With --listen HOST:PORT" );
      TlsFiles & tls = options_.rpc.tls;
      file( "--tls-cert", "Serve with TLS: the certificate, as PEM; a must beyond this machine",
            tls.certificate );
      file( "--tls-key", "Its key, as PEM", tls.key );
      file( "--tls-client-ca", "Clients need a certificate of one of these authorities, as PEM",
            tls.clientCa );
   }

   void declareStreams() {
      parser_.groupIs( "Streams to clients" );
      StreamOptions & stream = options_.stream;
      time( "--resume-time", "A stream that broke can be resumed for so long", kMostMilliseconds,
            stream.resumeTime );
      time( "--stall-time", "A client that takes nothing for so long is closed", kMostMilliseconds,
            stream.stallTime );
      time( "--drain-time", "At the end, clients have so long to take what is pending",
            kMostMilliseconds, stream.drainTime );
      limit( "--max-clients", "N", "Streams at a time, with those that may still be resumed", 1,
             kMostConnections, stream.mostClients );
      limit( "--undo-records", "N", "How far behind a client can resume, in records", 0,
             100'000'000, stream.undoRecords );
      limit( "--records-per-message", "N", "Records of one message, at most", 1, 1'000'000,
             stream.recordsPerMessage );
   }

   void declareObservation() {
      parser_.groupIs( "Watching over it" );
      parser_.text( "--metrics", "HOST:PORT",
                    "Serve metrics at http://HOST:PORT/metrics (nowhere), to whoever can reach it",
                    [this]( const std::string & given ) {
                       const auto address = listenAddressFrom( given );
                       if ( !address || !std::holds_alternative< TcpAddress >( *address ) ) {
                          OptionsParser::refuse( "--metrics", given,
                                                 "HOST:PORT, for example 127.0.0.1:9464" );
                       }
                       options_.metricsAddress = given;
                    } );
      file( "--record",
            "Write down what sources and clients publish, for veloctl replay; a file that is there "
            "is written over",
            options_.recordFile );
   }

   void time( const char * name, const std::string & help, std::uint64_t most,
              std::chrono::milliseconds & target ) {
      parser_.number( name, "MS", fmt::format( "{} ({})", help, target.count() ), 1, most,
                      [&target]( std::uint64_t n ) { target = std::chrono::milliseconds( n ); } );
   }

   template< typename Number >
   void limit( const char * name, const char * unit, const std::string & help, std::uint32_t least,
               std::uint32_t most, Number & target ) {
      parser_.number( name, unit, fmt::format( "{} ({})", help, target ), least, most,
                      [&target]( std::uint64_t n ) { target = static_cast< Number >( n ); } );
   }

   void file( const char * name, const char * help, std::string & target ) {
      parser_.text( name, "FILE", help, [name, &target]( const std::string & given ) {
         if ( given.empty() ) { OptionsParser::refuse( name, given, "the name of a file" ); }
         target = given;
      } );
   }

   /// Each of `names` is refused; `what` says with what it is of use.
   void notGiven( std::initializer_list< const char * > names, const char * what ) const {
      for ( const char * const name : names ) {
         if ( parser_.given( name ) ) {
            throw OptionsError( parser_.named( name ) + " is of use only with " + what );
         }
      }
   }

   void checkTogether() const {
      checkSource();
      checkTls();
      if ( options_.format == OutputFormat::none ) {
         notGiven( { "--max-records" }, "--format json or text" );
      }
   }

   void checkSource() const {
      if ( options_.source != SourceKind::synthetic ) {
         notGiven( { "--policies", "--classes", "--rate", "--churn", "--seed" },
                   "--source synthetic" );
      }
      if ( options_.source != SourceKind::nftables ) {
         notGiven( { "--table", "--interval" }, "--source nftables" );
      } else if ( options_.table.name.empty() ) {
         throw OptionsError(
            "--source nftables needs --table FAMILY/NAME, for example inet/filter" );
      }
      const std::uint64_t classes =
         std::uint64_t{ options_.synthetic.policies } * options_.synthetic.classes;
      if ( classes > kMostClasses ) {
         throw OptionsError(
            fmt::format( "--policies times --classes is {}: at most {} classes in all", classes,
                         kMostClasses ) );
      }
   }

   void checkTls() const {
      const auto address = listenAddressFrom( options_.rpc.listen );
      if ( !address || !std::holds_alternative< TcpAddress >( *address ) ) {
         notGiven( { "--tls-cert", "--tls-key", "--tls-client-ca" }, "--listen HOST:PORT" );
      }
      const TlsFiles & tls = options_.rpc.tls;
      if ( tls.certificate.empty() != tls.key.empty() ) {
         throw OptionsError( "--tls-cert and --tls-key are given together or not at all" );
      }
      if ( tls.certificate.empty() ) {
         notGiven( { "--tls-client-ca" }, "--tls-cert and --tls-key" );
      }
   }

   Options options_;
   OptionsParser parser_;
};

} // namespace

Options optionsFrom( const std::vector< std::string > & arguments ) {
   return AgentOptions().parse( arguments );
}

} // namespace VeloAgent

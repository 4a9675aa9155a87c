// The text forms of all types that have one. The first line names the type, the rest is the text.

#include <cstdint>
#include <map>

#include "Ipnet/Ipnet.h"
#include "Mpls/Mpls.h"
#include "Plink/Plink.h"
#include "PolicyMap/PolicyMap.h"
#include "Quon/ParseError.h"
#include "Quon/Quon.h"
#include "Quon/TextTestTypes.h"
#include "Routing/Bgp/Bgp.h"
#include "Routing/Fib/Fib.h"
#include "VeloSdkRpc/PbrCountersBacklogSm.h"
#include "VeloSdkRpc/detail/MiBacklogProgress.h"
#include "VeloSdkRpc/detail/PbrCounters.h"
#include "VeloSdkRpc/detail/PbrCountersEncodingFlags.h"
#include "tests/fuzz/Fuzz.h"

namespace Fuzz::TextForms {
namespace {

/// A refusal names the attribute and the position, in one line that a terminal can show.
void checkRefusal( const Quon::ParseError & error, std::string_view text ) {
   const std::string_view what = error.what();
   std::string place = "position " + std::to_string( error.position() ) + ": ";
   if ( !error.path().empty() ) {
      place = "attribute \"" + std::string( error.path() ) + "\", " + place;
   }
   require( error.position() <= text.size(), "a refusal names a position of the text" );
   require( what.starts_with( place ) && what.size() > place.size(),
            "a refusal says where and why" );
   for ( const char c : what ) {
      require( static_cast< unsigned char >( c ) >= ' ' && c != '\x7f',
               "a refusal is one line of printable characters" );
   }
}

template< class T >
void check( std::string_view text ) {
   try {
      const T value = Quon::fromText< T >( text );
      require( Quon::text( value ) == text, "what parses is the one text of its value" );
   } catch ( const Quon::ParseError & error ) { checkRefusal( error, text ); }
   require( Quon::test::Data::living == 0, "nothing is left of an entity in a text" );
}

using Check = void ( * )( std::string_view );

template< class... T >
void addDescribed( std::map< std::string_view, Check > & checks ) {
   ( checks.emplace( T::kTypeName, check< T > ), ... );
}

std::map< std::string_view, Check > allChecks() {
   std::map< std::string_view, Check > checks = {
      { "bool", check< bool > },
      { "int8", check< std::int8_t > },
      { "uint8", check< std::uint8_t > },
      { "int16", check< std::int16_t > },
      { "uint16", check< std::uint16_t > },
      { "int32", check< std::int32_t > },
      { "uint32", check< std::uint32_t > },
      { "int64", check< std::int64_t > },
      { "uint64", check< std::uint64_t > },
      { "string", check< Lumo::String > },
      { "optional", check< Quon::Optional< Lumo::String > > },
      { "PolicyMap::Counters::CountersData",
        check< Lumo::Ptr< const PolicyMap::Counters::CountersData > > },
      { "Test::Chain", check< Lumo::Ptr< const Quon::test::Chain > > } };
   // One for each way in which a type can be described.
   addDescribed< Quon::test::Record, Quon::test::Flags, Quon::test::Checked, Quon::test::Empty >(
      checks );
   addDescribed< Ipnet::IntfId, Ipnet::IpAddr, Ipnet::IpPrefix, Plink::Fib::FecId >( checks );
   addDescribed< PolicyMap::Counters::PolicyMapKey, PolicyMap::Counters::CountData >( checks );
   addDescribed< Mpls::RouteKey, Mpls::Hardware::AckInfo, Mpls::Hardware::Route >( checks );
   addDescribed< Routing::Bgp::BgpLinkWeightSdkOverrideEntry, Routing::Fib::LabelStack,
                 Routing::Fib::Via, Routing::Fib::FibOverrideViaMatcher,
                 Routing::Fib::FibOverrideVia >( checks );
   addDescribed< VeloSdkRpc::PbrCountersEncodingFlags, VeloSdkRpc::PbrCountersKey,
                 VeloSdkRpc::PbrCounters, QuonLumo::MiBacklogProgress,
                 VeloSdkRpc::IlexCode::PbrCountersBacklogSm::BacklogBacklogOutputKeyType >(
      checks );
   return checks;
}

void parse( std::string_view input ) {
   static const std::map< std::string_view, Check > checks = allChecks();
   const auto [type, text] = firstLine( input );
   if ( const auto found = checks.find( type ); found != checks.end() ) { found->second( text ); }
}

const Target target( "TextForms", parse );

} // namespace
} // namespace Fuzz::TextForms

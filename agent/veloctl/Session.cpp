#include "agent/veloctl/Session.h"

#include "agent/JsonText.h"
#include "agent/veloctl/Client.h"
#include "agent/veloctl/MessageJson.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace VeloCtl {

Session::Session( const Streams & to ) : streams( to ) {}

Session::~Session() = default;

Client & Session::agent() {
   if ( !agent_ ) { agent_ = std::make_unique< Client >( address ); }
   return *agent_;
}

void Session::line( std::string_view text ) { streams.out << text << '\n'; }

void Session::jsonLine( const google::protobuf::Message & message ) {
   line( VeloAgent::lineOf( jsonOf( message ) ) );
}

} // namespace VeloCtl

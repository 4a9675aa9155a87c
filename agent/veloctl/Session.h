/// One run of veloctl: the options that all subcommands share, where it writes, and the agent.

#pragma once

#include "agent/veloctl/AgentAddress.h"

#include <google/protobuf/message.h>
#include <iosfwd>
#include <memory>
#include <string_view>

namespace VeloCtl {

class Client;

enum class Format { text, json };

/// Where a run writes. The streams outlive it.
struct Streams {
   std::ostream & out;
   std::ostream & err;
   bool outIsTerminal = false;
   bool errIsTerminal = false;
};

class Session {
 public:
   explicit Session( const Streams & to );
   ~Session();

   Streams streams;
   Format format = Format::text;
   AgentAddress address;

   /// Connected when first asked for.
   Client & agent();

   bool json() const { return format == Format::json; }

   /// One line on standard output.
   void line( std::string_view text );
   /// `message` as a line of JSON.
   void jsonLine( const google::protobuf::Message & message );

 private:
   std::unique_ptr< Client > agent_;
};

} // namespace VeloCtl

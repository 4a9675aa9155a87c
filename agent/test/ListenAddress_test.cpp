#include "agent/rpc/ListenAddress.h"

#include <gtest/gtest.h>

namespace VeloAgent {
namespace {

TEST( ListenAddress, TheThreeFormsAreUnderstood ) {
   EXPECT_EQ( listenAddressFrom( "none" ), ListenAddress( Nowhere() ) );
   EXPECT_EQ( listenAddressFrom( "unix:/run/a b.sock" ),
              ListenAddress( UnixAddress{ "/run/a b.sock" } ) );
   EXPECT_EQ( listenAddressFrom( "unix:here.sock" ), ListenAddress( UnixAddress{ "here.sock" } ) );
   EXPECT_EQ( listenAddressFrom( "localhost:50051" ),
              ListenAddress( TcpAddress{ "localhost", 50051 } ) );
   EXPECT_EQ( listenAddressFrom( "[::1]:0" ), ListenAddress( TcpAddress{ "::1", 0 } ) );
}

TEST( ListenAddress, WhatHasNoneOfTheFormsIsRefused ) {
   for ( const std::string wrong :
         { "", "unix:", "/run/a.sock", "host", "host:", ":1", "host:port", "host:65536", "host:-1",
           "::1:50051", "[]:1", "[[]:1", "[::1]]:1", "[::1]", "None" } ) {
      EXPECT_EQ( listenAddressFrom( wrong ), std::nullopt ) << wrong;
   }
   EXPECT_EQ( listenAddressFrom( std::string_view( "unix:/a\0b", 9 ) ), std::nullopt );
}

TEST( ListenAddress, ItsTextIsUnderstoodAsTheSame ) {
   for ( const std::string text : { "none", "unix:/a/b", "10.0.0.1:7", "[fe80::1]:7", "host:7" } ) {
      EXPECT_EQ( textOf( listenAddressFrom( text ).value() ), text );
   }
}

} // namespace
} // namespace VeloAgent

#include "agent/rpc/ConnectionGate.h"

#include "agent/rpc/ListeningSockets.h"

#include <array>
#include <condition_variable>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>

namespace VeloAgent {
namespace {

constexpr std::chrono::seconds kPatience{ 30 };

/// A gate with a transport that keeps what it is handed, and clients.
class ConnectionGateTest : public testing::Test {
 protected:
   void gateFor( std::size_t most ) {
      gate = std::make_unique< ConnectionGate >( sockets.sockets(), most, [this]( int, int fd ) {
         const std::lock_guard lock( mutex );
         handedOver.emplace_back( fd );
         changed.notify_all();
      } );
   }

   FileDescriptor client() const {
      FileDescriptor made( ::socket( AF_INET, SOCK_STREAM, 0 ) );
      const timeval patience = { .tv_sec = kPatience.count(), .tv_usec = 0 };
      ::setsockopt( *made, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof( patience ) );
      sockaddr_in address = {};
      address.sin_family = AF_INET;
      address.sin_port = htons( sockets.port() );
      address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
      EXPECT_EQ( ::connect( *made, reinterpret_cast< sockaddr * >( &address ), sizeof( address ) ),
                 0 );
      return made;
   }

   /// Waits until so many were handed over.
   bool handed( std::size_t count ) {
      std::unique_lock lock( mutex );
      return changed.wait_for( lock, kPatience, [&] { return handedOver.size() >= count; } );
   }

   /// What a transport does at the end of a connection.
   void transportCloses( std::size_t n ) {
      const std::lock_guard lock( mutex );
      ::shutdown( *handedOver[n], SHUT_RDWR );
      handedOver[n].close();
   }

   /// Whether the other side has closed; waits until it has.
   static bool closed( const FileDescriptor & client ) {
      char byte = 0;
      const ssize_t got = ::recv( *client, &byte, 1, 0 );
      return got == 0 || ( got < 0 && errno == ECONNRESET );
   }

   /// Somebody is let in in the end: those before are refused as long as none has gone.
   bool letIn() {
      const std::size_t before = handedOver.size();
      const auto deadline = std::chrono::steady_clock::now() + kPatience;
      while ( std::chrono::steady_clock::now() < deadline ) {
         const FileDescriptor one = client();
         ::shutdown( *one, SHUT_WR );
         std::unique_lock lock( mutex );
         if ( changed.wait_for( lock, std::chrono::milliseconds( 20 ),
                                [&] { return handedOver.size() > before; } ) ) {
            return true;
         }
      }
      return false;
   }

   const ListeningSockets sockets{ TcpAddress{ "127.0.0.1", 0 } };
   std::mutex mutex;
   std::condition_variable changed;
   std::vector< FileDescriptor > handedOver;
   std::unique_ptr< ConnectionGate > gate;
};

TEST_F( ConnectionGateTest, WhoConnectsIsHandedOver ) {
   gateFor( 10 );
   const FileDescriptor one = client();
   const FileDescriptor two = client();
   ASSERT_TRUE( handed( 2 ) );
   EXPECT_EQ( gate->open(), 2U );
   EXPECT_EQ( gate->accepted(), 2U );
   EXPECT_EQ( gate->refused(), 0U );
}

TEST_F( ConnectionGateTest, OneTooManyIsClosedAtOnce ) {
   gateFor( 2 );
   const FileDescriptor one = client();
   const FileDescriptor two = client();
   ASSERT_TRUE( handed( 2 ) );
   const FileDescriptor third = client();
   EXPECT_TRUE( closed( third ) );
   EXPECT_EQ( gate->refused(), 1U );
   EXPECT_EQ( gate->open(), 2U );
}

TEST_F( ConnectionGateTest, WhenTheTransportClosesOneAnotherIsLetIn ) {
   gateFor( 1 );
   const FileDescriptor one = client();
   ASSERT_TRUE( handed( 1 ) );
   transportCloses( 0 );
   EXPECT_TRUE( closed( one ) );
   EXPECT_TRUE( letIn() );
}

TEST_F( ConnectionGateTest, AClientThatWentAndWasClosedMakesRoom ) {
   gateFor( 1 );
   client().close();
   ASSERT_TRUE( handed( 1 ) );
   transportCloses( 0 );
   EXPECT_TRUE( letIn() );
}

TEST_F( ConnectionGateTest, AClosedGateLetsNobodyInAndClosesNobody ) {
   gateFor( 10 );
   const FileDescriptor one = client();
   ASSERT_TRUE( handed( 1 ) );
   gate->close();
   gate->close();
   const FileDescriptor late = client();
   EXPECT_EQ( gate->accepted(), 1U );
   const char byte = 'x';
   EXPECT_EQ( ::send( *handedOver[0], &byte, 1, 0 ), 1 );
   char got = 0;
   EXPECT_EQ( ::recv( *one, &got, 1, 0 ), 1 );
}

TEST_F( ConnectionGateTest, AClosedGateCanHangUpOnThoseInside ) {
   gateFor( 10 );
   const FileDescriptor one = client();
   const FileDescriptor two = client();
   ASSERT_TRUE( handed( 2 ) );
   gate->close();
   gate->hangUp();
   EXPECT_TRUE( closed( one ) );
   EXPECT_TRUE( closed( two ) );
   EXPECT_EQ( gate->open(), 0U );
}

} // namespace
} // namespace VeloAgent

#include "agent/rpc/ListeningSockets.h"

#include "agent/rpc/UnixSocketAddress.h"
#include "agent/test/TemporaryDirectory.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>

namespace VeloAgent {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class UnixListening : public testing::Test {
 protected:
   std::unique_ptr< ListeningSockets > listen() {
      return std::make_unique< ListeningSockets >( UnixAddress{ path } );
   }

   std::string complaint() {
      try {
         listen();
      } catch ( const std::runtime_error & error ) { return error.what(); }
      return "none";
   }

   /// A socket that somebody listens at who takes no lock; when it goes its path stays, as after
   /// the end of a process that was killed.
   FileDescriptor foreignServer() const {
      FileDescriptor socket( ::socket( AF_UNIX, SOCK_STREAM, 0 ) );
      const UnixSocketAddress address( path );
      EXPECT_EQ( ::bind( *socket, address.get(), address.size() ), 0 );
      EXPECT_EQ( ::listen( *socket, 1 ), 0 );
      return socket;
   }

   bool connects() const {
      const FileDescriptor client( ::socket( AF_UNIX, SOCK_STREAM, 0 ) );
      const UnixSocketAddress address( path );
      return ::connect( *client, address.get(), address.size() ) == 0;
   }

   std::size_t filesThere() const {
      const std::filesystem::directory_iterator files( directory.path() );
      return static_cast< std::size_t >( std::distance( begin( files ), end( files ) ) );
   }

   TemporaryDirectory directory;
   std::string path = directory / "agent.sock";
};

TEST_F( UnixListening, OnlyTheOwnerAndItsGroupMayConnect ) {
   const auto sockets = listen();
   struct stat there = {};
   ASSERT_EQ( ::stat( path.c_str(), &there ), 0 );
   EXPECT_TRUE( S_ISSOCK( there.st_mode ) );
   EXPECT_EQ( there.st_mode & 07777U, 0660U );
   EXPECT_TRUE( connects() );
}

TEST_F( UnixListening, TheModeDoesNotDependOnTheUmask ) {
   const mode_t before = ::umask( 0 );
   const auto sockets = listen();
   ::umask( before );
   struct stat there = {};
   ASSERT_EQ( ::stat( path.c_str(), &there ), 0 );
   EXPECT_EQ( there.st_mode & 07777U, 0660U );
}

TEST_F( UnixListening, NothingIsLeftBehind ) {
   listen();
   EXPECT_EQ( filesThere(), 0U );
}

TEST_F( UnixListening, TheSocketOfALiveServerIsNotTaken ) {
   const auto first = listen();
   EXPECT_EQ( complaint(), "cannot listen at unix:" + path +
                              ": another server listens there; stop it, or choose another path" );
   EXPECT_TRUE( connects() );
}

TEST_F( UnixListening, TheSocketOfAnotherKindOfServerIsNotTakenEither ) {
   const FileDescriptor foreign = foreignServer();
   EXPECT_THAT( complaint(), HasSubstr( "another server listens there" ) );
   EXPECT_TRUE( connects() );
   EXPECT_EQ( filesThere(), 1U );
}

TEST_F( UnixListening, ASocketThatNobodyListensAtIsReplaced ) {
   foreignServer().close();
   ASSERT_FALSE( connects() );
   const auto sockets = listen();
   EXPECT_TRUE( connects() );
}

TEST_F( UnixListening, AFileThatIsNoSocketStays ) {
   std::ofstream( path ) << "precious";
   EXPECT_THAT( complaint(), EndsWith( ": something is there that is no socket" ) );
   EXPECT_EQ( std::filesystem::file_size( path ), 8U );
}

TEST_F( UnixListening, APathThatIsTooLongIsRefusedWithTheLimit ) {
   path = directory / std::string( 200, 'x' );
   EXPECT_THAT( complaint(), EndsWith( " bytes, that of a socket has at most 107" ) );
}

TEST_F( UnixListening, TheLongestPathIsAccepted ) {
   path = directory / std::string( 107 - directory.path().size() - 1, 'x' );
   const auto sockets = listen();
   EXPECT_TRUE( connects() );
}

TEST_F( UnixListening, AMissingDirectoryIsNamed ) {
   path = directory / "not/there.sock";
   EXPECT_THAT( complaint(),
                EndsWith( "there is no directory " + ( directory / "not" ) + "; make it first" ) );
}

TEST_F( UnixListening, AFileInPlaceOfADirectoryIsNamed ) {
   std::ofstream( directory / "file" ) << "x";
   path = directory / "file/agent.sock";
   EXPECT_THAT( complaint(), EndsWith( ( directory / "file" ) + " is no directory" ) );
}

/// Root, who may write in every directory, is somebody else for a while; others stay who they are.
class OrdinaryUser {
 public:
   /// Who may enter `directory`.
   explicit OrdinaryUser( const std::string & directory ) {
      ::chmod( directory.c_str(), 0755 );
      if ( wasRoot_ ) { EXPECT_EQ( ::setresuid( kNobody, kNobody, 0 ), 0 ); }
   }
   ~OrdinaryUser() {
      if ( wasRoot_ ) { EXPECT_EQ( ::setresuid( 0, 0, 0 ), 0 ); }
   }
   OrdinaryUser( const OrdinaryUser & ) = delete;
   OrdinaryUser & operator=( const OrdinaryUser & ) = delete;

 private:
   static constexpr uid_t kNobody = 65534;
   const bool wasRoot_ = ::geteuid() == 0;
};

TEST_F( UnixListening, ADirectoryThatMayNotBeWrittenIsNamed ) {
   // Not even root may write there.
   path = "/proc/self/agent.sock";
   EXPECT_THAT( complaint(), StartsWith( "cannot listen at unix:/proc/self/agent.sock: " ) );
   path = directory / "closed/agent.sock";
   std::filesystem::create_directory( directory / "closed" );
   ::chmod( ( directory / "closed" ).c_str(), 0500 );
   const OrdinaryUser user( directory.path() );
   EXPECT_THAT( complaint(), HasSubstr( ( directory / "closed" ) + " may not be written" ) );
}

std::string tcpComplaint( const TcpAddress & address ) {
   try {
      ListeningSockets{ address };
   } catch ( const std::runtime_error & error ) { return error.what(); }
   return "none";
}

TEST( TcpListening, PortZeroIsAnyThatIsFree ) {
   const ListeningSockets sockets( TcpAddress{ "127.0.0.1", 0 } );
   EXPECT_EQ( sockets.sockets().size(), 1U );
   EXPECT_GT( sockets.port(), 0 );
   EXPECT_FALSE( sockets.beyondLoopback() );
}

TEST( TcpListening, AllAddressesOfALoopbackAreLoopback ) {
   EXPECT_FALSE( ListeningSockets( TcpAddress{ "localhost", 0 } ).beyondLoopback() );
   EXPECT_FALSE( ListeningSockets( TcpAddress{ "127.1.2.3", 0 } ).beyondLoopback() );
}

TEST( TcpListening, AnyAddressIsBeyondLoopback ) {
   EXPECT_TRUE( ListeningSockets( TcpAddress{ "0.0.0.0", 0 } ).beyondLoopback() );
}

TEST( TcpListening, APortThatIsTakenIsNamed ) {
   const ListeningSockets first( TcpAddress{ "127.0.0.1", 0 } );
   EXPECT_EQ( tcpComplaint( { "127.0.0.1", first.port() } ),
              "cannot listen at 127.0.0.1:" + std::to_string( first.port() ) +
                 ": the port is taken; stop who has it, or choose another" );
}

TEST( TcpListening, AnAddressOfAnotherMachineIsNamed ) {
   EXPECT_EQ( tcpComplaint( { "192.0.2.1", 0 } ),
              "cannot listen at 192.0.2.1:0: this machine has no such address" );
}

} // namespace
} // namespace VeloAgent

#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <grpcpp/channel.h>
#include <grpcpp/client_context.h>
#include <grpcpp/create_channel.h>

#include "velo/rpc/v1/pbr_counters.grpc.pb.h"
#include "velo/rpc/v1/switch_state.grpc.pb.h"

/// velo-agent as its clients see it: a process of its own, behind a Unix socket.
namespace bench {

using velo::rpc::v1::PbrCounters;
using velo::rpc::v1::PbrCountersWatchRequest;
using velo::rpc::v1::PbrCountersWatchResponse;
using velo::rpc::v1::PublishPbrCountersRequest;
using velo::rpc::v1::PublishPbrCountersResponse;
using velo::rpc::v1::SwitchState;

inline void require( bool asItShouldBe, const std::string & what ) {
   if ( !asItShouldBe ) { throw std::runtime_error( what ); }
}

/// Counts nothing but what is published to it.
class ServedAgent {
 public:
   ServedAgent() {
      std::string program = VELO_AGENT, source = "--source", none = "none", listen = "--listen";
      char * arguments[] = { program.data(), source.data(),   none.data(),
                             listen.data(),  address_.data(), nullptr };
      posix_spawn_file_actions_t linesToNobody;
      posix_spawn_file_actions_init( &linesToNobody );
      posix_spawn_file_actions_addopen( &linesToNobody, STDOUT_FILENO, "/dev/null", O_WRONLY, 0 );
      const int failed =
         posix_spawn( &pid_, VELO_AGENT, &linesToNobody, nullptr, arguments, environ );
      posix_spawn_file_actions_destroy( &linesToNobody );
      require( failed == 0, "velo-agent cannot be started" );
      const auto deadline = std::chrono::system_clock::now() + std::chrono::seconds( 30 );
      require( connect()->WaitForConnected( deadline ), "velo-agent does not listen" );
   }
   ~ServedAgent() {
      kill( pid_, SIGTERM );
      waitpid( pid_, nullptr, 0 );
      std::filesystem::remove_all( directory_ );
   }
   ServedAgent( const ServedAgent & ) = delete;
   ServedAgent & operator=( const ServedAgent & ) = delete;

   /// With a connection of its own.
   std::shared_ptr< grpc::Channel > connect() const {
      grpc::ChannelArguments arguments;
      arguments.SetInt( GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1 );
      arguments.SetMaxReceiveMessageSize( -1 );
      return grpc::CreateCustomChannel( address_, grpc::InsecureChannelCredentials(), arguments );
   }

   /// Class `n` counts `packets`, for each n from `first` to before `end`.
   void publish( std::uint32_t first, std::uint32_t end, std::uint64_t packets ) {
      PublishPbrCountersRequest request;
      for ( std::uint32_t n = first; n < end; ++n ) {
         auto & set = *request.add_changes()->mutable_set_class();
         set.set_policy( "policy" + std::to_string( n / kClassesPerPolicy ) );
         set.set_class_name( "class" + std::to_string( n % kClassesPerPolicy ) );
         set.set_packets( packets );
         set.set_bytes( packets * 700 );
      }
      grpc::ClientContext context;
      PublishPbrCountersResponse response;
      const auto status = switch_->PublishPbrCounters( &context, request, &response );
      require( status.ok(), status.error_message() );
   }

   /// All of them, in batches.
   void publishAll( std::uint32_t classes, std::uint64_t packets ) {
      for ( std::uint32_t n = 0; n < classes; n += kBatch ) {
         publish( n, std::min( n + kBatch, classes ), packets );
      }
   }

   /// What the process has in memory of its own, in bytes.
   double residentBytes() const {
      std::ifstream statm( "/proc/" + std::to_string( pid_ ) + "/statm" );
      double pages = 0, resident = 0, shared = 0;
      statm >> pages >> resident >> shared;
      return ( resident - shared ) * static_cast< double >( sysconf( _SC_PAGESIZE ) );
   }

   static constexpr std::uint32_t kClassesPerPolicy = 100;
   static constexpr std::uint32_t kBatch = 10'000;

 private:
   static std::string newDirectory() {
      std::string name = std::filesystem::temp_directory_path() / "velo-agent-bench-XXXXXX";
      require( mkdtemp( name.data() ), "no temporary directory" );
      return name;
   }

   const std::string directory_ = newDirectory();
   std::string address_ = "unix:" + directory_ + "/agent.sock";
   pid_t pid_ = 0;
   const std::unique_ptr< SwitchState::Stub > switch_ = SwitchState::NewStub( connect() );
};

/// Watches on a thread of its own, as fast as it can.
class Watcher {
 public:
   using Take = std::function< void( const PbrCountersWatchResponse & ) >;

   /// `take` is called on that thread with every message, before it counts.
   explicit Watcher( const ServedAgent & agent, bool longKeys = false, Take take = {} )
      : stub_( PbrCounters::NewStub( agent.connect() ) ), take_( std::move( take ) ) {
      PbrCountersWatchRequest request;
      request.set_always_long_keys( longKeys );
      stream_ = stub_->Watch( &context_, request );
      thread_ = std::thread( [this] { follow(); } );
   }
   ~Watcher() {
      context_.TryCancel();
      thread_.join();
   }
   Watcher( const Watcher & ) = delete;
   Watcher & operator=( const Watcher & ) = delete;

   std::uint64_t records() const { return records_; }
   std::uint64_t bytes() const { return bytes_; }

   /// Until every one of `classes` counts at least `packets`.
   void untilAllCount( std::uint32_t classes, std::uint64_t packets ) const {
      while ( recordsOf( packets ) < classes ) {
         std::this_thread::sleep_for( std::chrono::microseconds( 100 ) );
      }
   }
   void untilInSync() const {
      while ( !inSync_ ) { std::this_thread::sleep_for( std::chrono::microseconds( 100 ) ); }
   }

 private:
   std::uint64_t recordsOf( std::uint64_t packets ) const {
      return newest_ == packets ? ofNewest_.load() : 0;
   }

   void follow() {
      PbrCountersWatchResponse message;
      while ( stream_->Read( &message ) ) {
         if ( take_ ) { take_( message ); }
         bytes_ += message.ByteSizeLong();
         for ( const auto & record : message.batch().records() ) {
            ++records_;
            if ( record.counters().packets() > newest_ ) {
               ofNewest_ = 0;
               newest_ = record.counters().packets();
            }
            if ( record.counters().packets() == newest_ ) { ++ofNewest_; }
         }
         if ( message.has_in_sync() ) { inSync_ = true; }
      }
      stream_->Finish();
   }

   const std::unique_ptr< PbrCounters::Stub > stub_;
   const Take take_;
   grpc::ClientContext context_;
   std::unique_ptr< grpc::ClientReader< PbrCountersWatchResponse > > stream_;
   std::atomic< std::uint64_t > records_{ 0 }, bytes_{ 0 }, newest_{ 0 }, ofNewest_{ 0 };
   std::atomic< bool > inSync_{ false };
   std::thread thread_;
};

} // namespace bench

/// The counters stream over a long time, with classes coming and going: does its memory stay flat?
///
/// Usage: soak [--minutes N] [--leak]
///
/// The time is simulated: a minute of it takes a fraction of a second. Every second some classes go
/// and as many come under names that there never were; others count; now and then a policy map goes
/// as a whole, the consumer changes, or the stream stops for a while. At the end of every minute,
/// with nothing pending, live blocks and bytes are compared with those of the first minutes.
/// With --leak one reference per second is kept, which must be found.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "LiveMemory.h"
#include "Oru/FakeClock.h"
#include "Stream.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/Loop.h"

namespace VeloSdkRpc::simulation {
namespace {

using namespace std::chrono_literals;

constexpr int kPolicies = 20, kClassesPerPolicy = 100, kTurnoverPerSecond = 100;
constexpr std::size_t kSurvivors = 100;
constexpr int kMinutesOfWarmUp = 3;
/// Tables grow by doubling and shrink lazily: it depends on where in that they are.
constexpr double kTolerance = 1.02;

class Soak {
 public:
   explicit Soak( bool leaks ) : leaks_( leaks ) {
      loop_.scheduler()->slicePolicyIs( std::make_unique< Oru::TimeSlice >( 1ms, clock_ ) );
      for ( int n = 0; n < kPolicies * kClassesPerPolicy; ++n ) { classComes(); }
      watchAnew();
   }

   void minute() {
      for ( int second = 0; second < 60; ++second ) { this->second(); }
      if ( ++minutes_ % 2 == 0 ) {
         stream_->stop();
         for ( int second = 0; second < 5; ++second ) { this->second(); }
      }
      if ( minutes_ % 3 == 0 ) { policyGoes(); }
      watchAnew();
      loop_.runUntilIdle();
   }

   bool consumerKnowsTheTree() const { return consumer_->contents() == tree_.contents(); }
   std::uint64_t keysEver() const { return stream_->table().nextKey(); }
   std::uint64_t records() const { return stream_->backlog()->account().delivered; }

 private:
   /// It takes its time for every record.
   class Consumer final : public test::ReconstructingConsumer {
    public:
      explicit Consumer( Oru::FakeClock & clock ) : clock_( clock ) {}
      void appendItem( const PbrCounters & record, PbrCountersEncodingFlags flags ) override {
         clock_.advance( 10us );
         ReconstructingConsumer::appendItem( record, flags );
      }

    private:
      Oru::FakeClock & clock_;
   };

   static std::string policyOf( std::uint64_t serial ) {
      return "policy" + std::to_string( serial % kPolicies );
   }
   /// All names are as long, so that they need the same memory for ever.
   static std::string classOf( std::uint64_t serial ) {
      return "class" + std::to_string( 1'000'000'000 + serial );
   }

   void classComes() {
      tree_.addClass( policyOf( last_ ), classOf( last_ ), last_ );
      ++last_;
   }
   /// The oldest; but one in a hundred stays for some minutes, alone among what came after it.
   void classGoes() {
      if ( first_ % 101 == 0 ) {
         survivors_.push_back( first_ );
      } else {
         remove( first_ );
      }
      ++first_;
      if ( survivors_.size() > kSurvivors ) {
         remove( survivors_.front() );
         survivors_.pop_front();
      }
   }
   void remove( std::uint64_t serial ) {
      tree_.removeClass( policyOf( serial ), classOf( serial ) );
   }
   void policyGoes() {
      tree_.removePolicy( policyOf( static_cast< std::uint64_t >( minutes_ ) / 3 ) );
      for ( std::uint64_t serial = first_; serial < last_; ++serial ) {
         const auto * const map = tree_.policyMap( policyOf( serial ) );
         if ( !map ) { tree_.addPolicy( policyOf( serial ) ); }
         if ( !tree_.policyMap( policyOf( serial ) )
                  ->classCounters()[Lumo::String( classOf( serial ) )] ) {
            tree_.addClass( policyOf( serial ), classOf( serial ), serial );
         }
      }
   }

   void second() {
      for ( int n = 0; n < kTurnoverPerSecond; ++n ) {
         classGoes();
         classComes();
         if ( n % 10 == 0 ) { loop_.runOne(); }
      }
      for ( std::uint64_t serial = first_; serial < last_; serial += 4 ) {
         tree_.count( policyOf( serial ), classOf( serial ), ++packets_ );
      }
      loop_.runUntilIdle();
      clock_.advance( 1s );
      if ( leaks_ ) { leaked_.push_back( Lumo::makeNode< test::CountersData >( "leaked" ) ); }
   }

   void watchAnew() {
      stream_->stop();
      consumer_ = Lumo::makeNode< Consumer >( clock_ );
      stream_->start( consumer_ );
   }

   const bool leaks_;
   Oru::FakeClock clock_;
   test::Loop loop_;
   test::CountersTree tree_;
   const std::unique_ptr< Stream > stream_ = managedStream( tree_.root, 0 );
   Lumo::Ptr< Consumer > consumer_;
   std::uint64_t first_ = 0, last_ = 0; ///< The classes that there are, by serial number.
   std::deque< std::uint64_t > survivors_;
   std::uint64_t packets_ = 0;
   int minutes_ = 0;
   std::vector< Lumo::Ptr< test::CountersData > > leaked_;
};

int soaked( int minutes, bool leaks ) {
   Soak soak( leaks );
   LiveMemory most;
   std::cout << "minute        keys     records   live blocks    live bytes\n";
   for ( int minute = 1; minute <= minutes; ++minute ) {
      soak.minute();
      if ( !soak.consumerKnowsTheTree() ) {
         std::cout << "FAILED: the consumer does not know the tree\n";
         return EXIT_FAILURE;
      }
      const LiveMemory now = LiveMemory::now();
      std::printf( "%6d %11llu %11llu %13zu %13zu\n", minute,
                   static_cast< unsigned long long >( soak.keysEver() ),
                   static_cast< unsigned long long >( soak.records() ), now.blocks, now.bytes );
      if ( minute <= kMinutesOfWarmUp ) {
         most = { std::max( most.blocks, now.blocks ), std::max( most.bytes, now.bytes ) };
      } else if ( static_cast< double >( now.blocks ) >
                     kTolerance * static_cast< double >( most.blocks ) ||
                  static_cast< double >( now.bytes ) >
                     kTolerance * static_cast< double >( most.bytes ) ) {
         std::cout << "FAILED: memory grows\n";
         return EXIT_FAILURE;
      }
   }
   return EXIT_SUCCESS;
}

} // namespace
} // namespace VeloSdkRpc::simulation

int main( int argc, char ** argv ) {
   int minutes = 15;
   bool leaks = false;
   for ( int n = 1; n < argc; ++n ) {
      if ( std::strcmp( argv[n], "--leak" ) == 0 ) {
         leaks = true;
      } else if ( std::strcmp( argv[n], "--minutes" ) == 0 && n + 1 < argc ) {
         minutes = std::atoi( argv[++n] );
      } else {
         std::cerr << "usage: soak [--minutes N] [--leak]\n";
         return 2;
      }
   }
   return VeloSdkRpc::simulation::soaked( minutes, leaks );
}

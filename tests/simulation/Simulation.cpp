#include "Simulation.h"

#include <new>

#include <sys/mman.h>
#include <unistd.h>

#include "Isolated.h"
#include "Shrink.h"

namespace VeloSdkRpc::simulation {
namespace {

constexpr unsigned kSecondsPerScript = 20;

/// What a child process leaves to its parent however it ends.
struct Legacy {
   std::uint64_t inPlay = 0; ///< The number of the script.
   Happenings happenings;
};

class SharedLegacy {
 public:
   SharedLegacy()
      : at_( ::mmap( nullptr, sizeof( Legacy ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                     -1, 0 ) ) {
      if ( at_ == MAP_FAILED ) { throw std::bad_alloc(); }
      new ( at_ ) Legacy;
   }
   ~SharedLegacy() { ::munmap( at_, sizeof( Legacy ) ); }
   SharedLegacy( const SharedLegacy & ) = delete;
   SharedLegacy & operator=( const SharedLegacy & ) = delete;

   Legacy * operator->() const { return static_cast< Legacy * >( at_ ); }

 private:
   void * const at_;
};

Happenings played( const Script & script, Mistake mistake ) {
   World world( mistake );
   world.play( script );
   return world.happenings();
}

void add( Happenings & sum, const Happenings & more ) {
   sum.steps += more.steps;
   sum.runs += more.runs;
   sum.records += more.records;
   sum.deedsInCalls += more.deedsInCalls;
   sum.streams += more.streams;
   sum.verdicts += more.verdicts;
}

/// Most are short.
Script nthScript( std::uint64_t seed, std::uint64_t n, std::size_t perScript ) {
   constexpr std::uint64_t kSpread = 0x2545f4914f6cdd1d;
   const std::size_t length = n % 16 == 15 ? 10 * perScript : perScript;
   return generated( seed * kSpread + n, length );
}

} // namespace

std::string failureOf( const Script & script, Mistake mistake ) {
   const auto play = [&] {
      played( script, mistake );
      return std::string();
   };
   return failureOf( play, kSecondsPerScript );
}

Simulated simulated( std::uint64_t seed, std::uint64_t steps, std::size_t perScript,
                     Mistake mistake ) {
   const SharedLegacy legacy;
   const auto playAll = [&] {
      for ( ; legacy->happenings.steps < steps; ++legacy->inPlay ) {
         ::alarm( kSecondsPerScript );
         add( legacy->happenings, played( nthScript( seed, legacy->inPlay, perScript ), mistake ) );
      }
      return std::string();
   };
   const std::string what = failureOf( playAll, kSecondsPerScript );
   if ( what.empty() ) { return { legacy->happenings, {} }; }
   const auto failsAlike = [&]( const Script & script ) {
      return failureOf( script, mistake ) == what;
   };
   Script script = nthScript( seed, legacy->inPlay, perScript );
   if ( failsAlike( script ) ) { script = shrunk( std::move( script ), failsAlike ); }
   return { legacy->happenings, Failure{ what, std::move( script ) } };
}

} // namespace VeloSdkRpc::simulation

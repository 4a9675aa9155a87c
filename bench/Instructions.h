#pragma once

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include <valgrind/callgrind.h>

/// Programs that count executed instructions instead of measuring time: one piece of work each time
/// they are run.
///
/// Usage: NAME_instructions WORK COUNT
///
/// Such a program prints how many items the work handled. Run under valgrind's callgrind, which
/// counts from the beginning of the work to its end and nothing else, it makes the figures that
/// `scripts/bench --instructions` prints: the same on every machine, however busy.
namespace bench {

inline void counted( const std::function< void() > & work ) {
   CALLGRIND_START_INSTRUMENTATION;
   work();
   CALLGRIND_STOP_INSTRUMENTATION;
}

/// By name: what is given the count, does the work `counted`, and returns how many items it
/// handled.
using CountedWorks = std::map< std::string, std::function< std::size_t( std::size_t ) > >;

/// The `main` of such a program.
inline int countInstructions( const CountedWorks & works, int argc, char ** argv ) {
   const auto work = argc == 3 ? works.find( argv[1] ) : works.end();
   const std::size_t count = argc == 3 ? std::strtoull( argv[2], nullptr, 10 ) : 0;
   if ( work == works.end() || count == 0 ) {
      std::cerr << "usage: " << argv[0] << " WORK COUNT, where WORK is one of\n";
      for ( const auto & [name, function] : works ) { std::cerr << "   " << name << '\n'; }
      return 2;
   }
   std::cout << work->second( count ) << '\n';
   return 0;
}

} // namespace bench

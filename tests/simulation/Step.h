#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

/// What can happen to a stream, as lines of text:
///
///    mount 0
///    addClass 5
///    start 0
///    in call 2: removeClass 5
///    slice 0
///
/// A step happens at once, or from inside a call of the consumer: the third from when it is met (2,
/// counted from 0). What does not apply - `stop` where nobody watches - does nothing, so every
/// selection of steps is a script too.
namespace VeloSdkRpc::simulation {

enum class Verb : std::uint8_t {
   // The tree; n says which policy map and class.
   addPolicy,
   addNullPolicy,
   removePolicy,
   addClass,
   listClass, ///< Without counters.
   removeClass,
   count,
   // Who watches.
   start,
   startAgain, ///< The same consumer.
   stop,
   fail, ///< Only inside a call: the consumer throws.
   // The life of the stream; see Stream.h. n says of which kind.
   mount,
   destroy,
   leave, ///< Table and backlog outlive the rest.
   restart,
   // Time.
   slicesOf, ///< From now on; n says how often a run may go on.
   slice,
   settle, ///< Slices until nothing is pending, and the oracle.
};
inline constexpr int kVerbs = static_cast< int >( Verb::settle ) + 1;

std::string_view nameOf( Verb verb );

/// Whether a consumer can do it in a call: a run cannot begin inside another.
constexpr bool isForCalls( Verb verb ) { return verb < Verb::slicesOf; }

struct Step {
   static constexpr int kAtOnce = -1;

   Verb verb;
   unsigned n = 0;
   int call = kAtOnce;
   friend bool operator==( const Step &, const Step & ) = default;
};
using Script = std::vector< Step >;

std::ostream & operator<<( std::ostream & os, const Step & step );
std::ostream & operator<<( std::ostream & os, const Script & script );

/// Reads what is written, and passes over empty lines and those that begin with '#'. Throws
/// `std::runtime_error` that names the line which it does not understand.
Script parsed( std::istream & text );

/// A script of about `length` steps, the same for the same seed. Some kinds of steps are left out
/// of a script and others come often, so that it gets to where an average one never does.
Script generated( std::uint64_t seed, std::size_t length );

} // namespace VeloSdkRpc::simulation

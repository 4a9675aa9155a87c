/// Finds the counters in what libnftables prints for one table as JSON.
///
/// A named counter is called POLICY/CLASS: the first slash parts the two, so a class name may hold
/// further ones. An anonymous counter belongs to a rule with a comment: the policy map is the
/// rule's chain, the class is the comment. Everything that comes to the same policy map and class
/// is summed. Rules without a comment have no name to go by and are passed over; so are counters in
/// set elements. A named counter whose name does not part in two is passed over and reported.
///
/// libnftables prints an unsigned 64-bit counter through a signed one, so numbers from 2^63 on
/// arrive negative; they are taken for what they were.

#pragma once

#include "agent/CounterSnapshot.h"

#include <stdexcept>
#include <string_view>
#include <vector>

namespace VeloAgent {

/// The text is not JSON, or not what libnftables prints for a table.
class NftJsonError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct NftCounters {
   CounterSnapshot counters;
   /// Named counters that are not called POLICY/CLASS.
   std::vector< std::string > misnamed;
};

/// Throws NftJsonError. Thread-safe: works on its argument alone.
NftCounters countersFromNftJson( std::string_view text );

/// The names of the tables in a listing of tables, as FAMILY/NAME. Throws NftJsonError.
std::vector< std::string > tablesFromNftJson( std::string_view text );

} // namespace VeloAgent

#include "agent/SyntheticChanges.h"

#include <algorithm>

namespace VeloAgent {

namespace {

std::string policyName( std::uint32_t policy ) { return "policy" + std::to_string( policy ); }
std::string className( std::uint32_t cls ) { return "class" + std::to_string( cls ); }

} // namespace

SyntheticChanges::SyntheticChanges( const SyntheticOptions & options )
   : policies_( options.policies ),
     classes_( options.classes ),
     churnPercent_( options.churnPercent ),
     random_( options.seed ),
     population_( std::size_t{ options.policies } * options.classes ),
     policyPresent_( options.policies, true ) {}

// Multiply and shift instead of a library distribution, whose results no standard fixes.
std::uint32_t SyntheticChanges::draw( std::uint32_t bound ) {
   return static_cast< std::uint32_t >( ( ( random_() >> 32 ) * bound ) >> 32 );
}

CounterChanges SyntheticChanges::next( std::size_t count ) {
   CounterChanges changes;
   changes.reserve( count );
   while ( changes.size() < count && populated_ < population_.size() ) {
      appear( static_cast< std::uint32_t >( populated_ / classes_ ),
              static_cast< std::uint32_t >( populated_ % classes_ ), changes );
      ++populated_;
   }
   while ( changes.size() < count ) { step( changes ); }
   return changes;
}

void SyntheticChanges::step( CounterChanges & changes ) {
   const std::uint32_t policy = draw( policies_ );
   const std::uint32_t cls = draw( classes_ );
   if ( !policyPresent_[policy] ) {
      policyPresent_[policy] = true;
      for ( std::uint32_t each = 0; each < classes_; ++each ) { appear( policy, each, changes ); }
   } else if ( !at( policy, cls ).present ) {
      appear( policy, cls, changes );
   } else if ( draw( 100 ) >= churnPercent_ ) {
      count( policy, cls, changes );
   } else if ( draw( kRemovalsPerPolicy ) == 0 ) {
      removePolicy( policy, changes );
   } else {
      remove( policy, cls, changes );
   }
}

void SyntheticChanges::appear( std::uint32_t policy, std::uint32_t cls, CounterChanges & changes ) {
   at( policy, cls ) = { .counters = {}, .present = true };
   changes.push_back( CountersSet{ policyName( policy ), className( cls ), {} } );
}

void SyntheticChanges::remove( std::uint32_t policy, std::uint32_t cls, CounterChanges & changes ) {
   at( policy, cls ).present = false;
   changes.push_back( ClassRemoved{ policyName( policy ), className( cls ) } );
}

void SyntheticChanges::removePolicy( std::uint32_t policy, CounterChanges & changes ) {
   policyPresent_[policy] = false;
   for ( std::uint32_t each = 0; each < classes_; ++each ) { at( policy, each ).present = false; }
   changes.push_back( PolicyRemoved{ policyName( policy ) } );
}

void SyntheticChanges::count( std::uint32_t policy, std::uint32_t cls, CounterChanges & changes ) {
   constexpr std::uint32_t kSmallestPacket = 64;
   constexpr std::uint32_t kLargestPacket = 1500;
   const std::uint32_t packets = 1 + draw( 100 );
   const std::uint32_t size = kSmallestPacket + draw( kLargestPacket - kSmallestPacket + 1 );
   Counters & counters = at( policy, cls ).counters;
   counters += { .packets = packets, .bytes = std::uint64_t{ packets } * size };
   changes.push_back( CountersSet{ policyName( policy ), className( cls ), counters } );
}

} // namespace VeloAgent

#include "Lumo/AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic< std::uint64_t > allocations{ 0 };

} // namespace

std::uint64_t Lumo::allocationCount() { return allocations.load( std::memory_order_relaxed ); }

// The array and nothrow forms of the standard library call these.

void * operator new( std::size_t size ) {
   allocations.fetch_add( 1, std::memory_order_relaxed );
   if ( void * memory = std::malloc( size ? size : 1 ) ) { return memory; }
   throw std::bad_alloc();
}

void operator delete( void * memory ) noexcept { std::free( memory ); }
void operator delete( void * memory, std::size_t ) noexcept { std::free( memory ); }

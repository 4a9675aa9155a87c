#include "LiveMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include <malloc.h>

namespace VeloSdkRpc::simulation {
namespace {

std::atomic< std::size_t > liveBlocks{ 0 }, liveBytes{ 0 };

void * counted( void * block ) {
   if ( !block ) { throw std::bad_alloc(); }
   ++liveBlocks;
   liveBytes += ::malloc_usable_size( block );
   return block;
}

void * allocated( std::size_t size ) { return counted( std::malloc( size ? size : 1 ) ); }
void * allocated( std::size_t size, std::align_val_t alignment ) {
   const auto unit = static_cast< std::size_t >( alignment );
   return counted( std::aligned_alloc( unit, ( size + unit - 1 ) / unit * unit ) );
}

void givenBack( void * block ) {
   if ( !block ) { return; }
   --liveBlocks;
   liveBytes -= ::malloc_usable_size( block );
   std::free( block );
}

} // namespace

LiveMemory LiveMemory::now() { return { liveBlocks, liveBytes }; }

} // namespace VeloSdkRpc::simulation

using namespace VeloSdkRpc::simulation;

// The forms for arrays and those that do not throw end in these.
void * operator new( std::size_t size ) { return allocated( size ); }
void * operator new( std::size_t size, std::align_val_t unit ) { return allocated( size, unit ); }
void operator delete( void * block ) noexcept { givenBack( block ); }
void operator delete( void * block, std::size_t ) noexcept { givenBack( block ); }
void operator delete( void * block, std::align_val_t ) noexcept { givenBack( block ); }
void operator delete( void * block, std::size_t, std::align_val_t ) noexcept { givenBack( block ); }

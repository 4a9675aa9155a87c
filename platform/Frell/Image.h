#pragma once

#include <cstdint>
#include <type_traits>

#include "Lumo/Assert.h"

/// What shared-memory images are made of.
///
/// An image is a fixed-size record of plain words with no pointer in it: it means the same wherever
/// the memory is mapped, and a reader that finds anything else in it can tell. What has no fixed
/// size, or lives in the process, is kept by the image's `Manager` and named here by numbers.
/// All zero bytes are the image of a default value; they hold nothing.
///
/// A value type declares its image as a nested `struct Image`, nested values' images included:
///
///    struct Image {
///       PolicyMap::Counters::PolicyMapKey::Image policyKey;
///       Frell::String name;
///    };
namespace Frell {

/// Where the elements lie in the manager's region; offset and size in bytes.
template< class T >
struct Array {
   std::uint32_t offset;
   std::uint32_t size;
};

/// The bytes of a string.
struct String {
   Array< char > chars;
};

/// One reference on an entity, held by the manager for this image; all zero: null.
struct EntityRef {
   std::uint32_t slot;
   std::uint32_t generation;
};

/// A bool; only 0 and 1 are valid.
struct Flag {
   std::uint8_t value;
};

/// The image at an address that the caller vouches for: large enough, aligned, and written by
/// `shmemify` before, or zero. What the bytes say is not trusted.
template< class Image >
Image & imageAt( void * address ) {
   static_assert( std::is_trivially_copyable_v< Image > && std::is_standard_layout_v< Image > );
   LUMO_ASSERT( reinterpret_cast< std::uintptr_t >( address ) % alignof( Image ) == 0 );
   return *static_cast< Image * >( address );
}
template< class Image >
const Image & imageAt( const void * address ) {
   return imageAt< Image >( const_cast< void * >( address ) );
}

} // namespace Frell

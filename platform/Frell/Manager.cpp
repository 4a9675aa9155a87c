#include "Frell/Manager.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include <fmt/format.h>

namespace Frell {
namespace {

/// Offset 0 belongs to nobody, so that a zero image is an empty string.
constexpr std::size_t kFirstOffset = 8;
constexpr std::size_t kLargestRegion = std::numeric_limits< std::uint32_t >::max();

/// Blocks come in powers of two, so that a freed one serves most texts of about its size.
std::uint32_t capacityFor( std::uint32_t size ) {
   return std::bit_ceil( std::max( size, std::uint32_t{ 8 } ) );
}

} // namespace

CorruptImage::~CorruptImage() = default;

Manager::Manager() : region_( kFirstOffset ) {}

std::string_view Manager::chars( const String & image ) const {
   const auto [offset, size] = image.chars;
   if ( offset == 0 && size == 0 ) { return {}; }
   const auto found = sizeAt_.find( offset );
   if ( found == sizeAt_.end() || found->second != size ) {
      throw CorruptImage(
         fmt::format( "no string of {} bytes lies at offset {} of the region", size, offset ) );
   }
   return { region_.data() + offset, size };
}

void Manager::stringIs( String & image, const Lumo::String & text ) {
   if ( chars( image ) == text.view() ) { return; }
   const Array< char > before = std::exchange( image.chars, allocate( text ) );
   release( before );
}

Array< char > Manager::allocate( std::string_view text ) {
   if ( text.empty() ) { return {}; }
   if ( text.size() > kLargestRegion / 2 ) {
      throw std::length_error( "the text is too long for a shared-memory image" );
   }
   const auto size = static_cast< std::uint32_t >( text.size() );
   const Offset offset = freeBlock( capacityFor( size ) );
   sizeAt_.emplace( offset, size );
   std::memcpy( region_.data() + offset, text.data(), size );
   return { offset, size };
}

Manager::Offset Manager::freeBlock( std::uint32_t capacity ) {
   if ( auto & freed = freeByCapacity_[capacity]; !freed.empty() ) {
      const Offset offset = freed.back();
      freed.pop_back();
      return offset;
   }
   if ( capacity > kLargestRegion - region_.size() ) {
      throw std::length_error( "the region for shared-memory images is full" );
   }
   const auto offset = static_cast< Offset >( region_.size() );
   region_.resize( region_.size() + capacity );
   return offset;
}

void Manager::release( const Array< char > & array ) {
   if ( array.size == 0 ) { return; }
   freeByCapacity_[capacityFor( array.size )].push_back( array.offset );
   sizeAt_.erase( array.offset );
}

/// The place in the table, plus one; 0 for a null image.
std::uint32_t Manager::indexOf( const EntityRef & image ) const {
   if ( image.slot == 0 && image.generation == 0 ) { return 0; }
   const bool known = image.slot >= 1 && image.slot <= entities_.size();
   if ( !known || !entities_[image.slot - 1].entity ||
        entities_[image.slot - 1].generation != image.generation ) {
      throw CorruptImage( fmt::format( "no entity is held in slot {}, generation {}", image.slot,
                                       image.generation ) );
   }
   return image.slot;
}

Lumo::Ptr< const Lumo::Node > Manager::entity( const EntityRef & image ) const {
   const std::uint32_t slot = indexOf( image );
   return slot ? entities_[slot - 1].entity : nullptr;
}

EntityRef Manager::hold( const Lumo::Ptr< const Lumo::Node > & entity ) {
   if ( !entity ) { return {}; }
   if ( freeSlots_.empty() ) {
      entities_.push_back( { nullptr, 1 } );
      freeSlots_.push_back( static_cast< std::uint32_t >( entities_.size() ) );
   }
   const std::uint32_t slot = freeSlots_.back();
   freeSlots_.pop_back();
   entities_[slot - 1].entity = entity;
   return { slot, entities_[slot - 1].generation };
}

void Manager::entityIs( EntityRef & image, const Lumo::Ptr< const Lumo::Node > & entity ) {
   const std::uint32_t before = indexOf( image );
   if ( before && entities_[before - 1].entity == entity ) { return; }
   image = hold( entity );
   if ( !before ) { return; }
   Held & held = entities_[before - 1];
   const Lumo::Ptr< const Lumo::Node > dropped = std::move( held.entity );
   ++held.generation;
   freeSlots_.push_back( before );
}

bool Manager::flag( const Flag & image ) {
   if ( image.value > 1 ) {
      throw CorruptImage( fmt::format( "a flag has the value {}", image.value ) );
   }
   return image.value != 0;
}

} // namespace Frell

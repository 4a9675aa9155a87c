#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "Frell/Image.h"
#include "Lumo/Export.h"
#include "Lumo/Node.h"
#include "Lumo/Ptr.h"
#include "Lumo/String.h"

namespace Frell {

/// An image whose bytes are not such as its manager's writer makes them.
class VELO_PLATFORM_EXPORT CorruptImage final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
   ~CorruptImage() override;
};

/// Keeps what images refer to: a region of bytes for their strings and the entities they hold.
///
///    image    | name { offset, size } | data { slot, generation } | ...
///                      |                       |
///    region   ...| c l a s s - a |...          |
///    entities  [ 1 ] [ 2 ] [ 3: generation 7, one reference on the entity ] ...
///
/// Owner      the host of the images; the images must be cleared or forgotten before it goes
/// Thread     event loop only
/// Re-entry   a reference is dropped after the image is up to date: the entity's destructor may
///            use the manager
/// Invariant  nothing that an image says is believed: a string must lie where one was put, a
///            reference must be one that is held; otherwise `CorruptImage`, and nothing is changed
class VELO_PLATFORM_EXPORT Manager {
 public:
   Manager();
   Manager( const Manager & ) = delete;
   Manager & operator=( const Manager & ) = delete;

   /// The bytes of a string image; good until the next change of any string.
   std::string_view chars( const String & image ) const;

   /// Makes `image` hold `text`; the space that it held before is free again.
   void stringIs( String & image, const Lumo::String & text );

   /// The entity that `image` refers to, or null.
   Lumo::Ptr< const Lumo::Node > entity( const EntityRef & image ) const;

   /// Makes `image` hold one reference on `entity`; the one that it held before is dropped.
   void entityIs( EntityRef & image, const Lumo::Ptr< const Lumo::Node > & entity );

   /// The value of `image`.
   static bool flag( const Flag & image );

   /// What is held for all images together; zero once all are cleared.
   std::size_t stringsHeld() const { return sizeAt_.size(); }
   std::size_t entitiesHeld() const { return entities_.size() - freeSlots_.size(); }

   /// How large the region has become, in bytes.
   std::size_t regionSize() const { return region_.size(); }

 private:
   using Offset = std::uint32_t;
   struct Held {
      Lumo::Ptr< const Lumo::Node > entity;
      std::uint32_t generation; ///< Changes when the reference is dropped.
   };

   Array< char > allocate( std::string_view text );
   void release( const Array< char > & array );
   Offset freeBlock( std::uint32_t capacity );
   std::uint32_t indexOf( const EntityRef & image ) const;
   EntityRef hold( const Lumo::Ptr< const Lumo::Node > & entity );

   std::vector< char > region_;
   std::map< Offset, std::uint32_t > sizeAt_;                        ///< Blocks in use.
   std::map< std::uint32_t, std::vector< Offset > > freeByCapacity_; ///< Blocks to be used again.
   std::vector< Held > entities_;
   std::vector< std::uint32_t > freeSlots_;
};

} // namespace Frell

#pragma once

#include <cstdint>
#include <string_view>

#include "Lumo/Export.h"
#include "Lumo/String.h"

namespace Keldb {

/// What a mount is for. Each flag has a letter in mode strings:
///
///    r   read         the entity is read, and its changes are told
///    w   write        the entity is written
///    i   initialize   the entity need not be there: then the mount makes it, of the type asked for
///
/// So "r" is for a status that somebody else keeps and "wi" for configuration of one's own.
enum class MountFlag : std::uint8_t { read = 1, write = 2, initialize = 4 };

/// A set of mount flags.
class AllMountFlags {
 public:
   /// The bits of `MountFlag`; 0 is the empty set. Other bits raise the range error for flags.
   VELO_PLATFORM_EXPORT explicit AllMountFlags( std::uint8_t value );

   std::uint8_t value() const { return value_; }
   bool has( MountFlag flag ) const { return value_ & static_cast< std::uint8_t >( flag ); }

   friend bool operator==( AllMountFlags, AllMountFlags ) = default;

 private:
   std::uint8_t value_;
};

/// A mount request: a path of the state database, the type of the entity there, and flags. By path
/// alone, type and flags are those that the database keeps for that path. A plain value.
class VELO_PLATFORM_EXPORT Mount {
 public:
   /// By path alone.
   explicit Mount( const Lumo::String & path );
   Mount( const Lumo::String & path, const Lumo::String & entityType,
          AllMountFlags flags = AllMountFlags( 0 ) );

   const Lumo::String & path() const { return path_; }
   const Lumo::String & entityType() const { return entityType_; }
   AllMountFlags flags() const { return flags_; }
   bool byPathAlone() const { return entityType_.empty() && flags_ == AllMountFlags( 0 ); }

   void flagsIs( AllMountFlags flags ) { flags_ = flags; }

   /// Adds the flags of the letters in `mode`. An unknown letter raises a range error, and then the
   /// flags are as before.
   void handleFlags( std::string_view mode );

   friend bool operator==( const Mount &, const Mount & ) = default;

 private:
   Lumo::String path_;
   Lumo::String entityType_;
   AllMountFlags flags_;
};

} // namespace Keldb

#include "Keldb/Mount.h"

#include <fmt/format.h>

#include "Quon/Exceptions.h"

namespace Keldb {
namespace {

constexpr std::uint8_t kAllFlags = 7;

/// The flag that `letter` stands for; 0 for an unknown letter.
std::uint8_t flagOfLetter( char letter ) {
   switch ( letter ) {
   case 'r':
      return static_cast< std::uint8_t >( MountFlag::read );
   case 'w':
      return static_cast< std::uint8_t >( MountFlag::write );
   case 'i':
      return static_cast< std::uint8_t >( MountFlag::initialize );
   default:
      return 0;
   }
}

} // namespace

AllMountFlags::AllMountFlags( std::uint8_t value ) : value_( value ) {
   if ( value > kAllFlags ) {
      Quon::throwDenseEnumBoolSetRangeException( "Keldb::AllMountFlags", value, kAllFlags );
   }
}

Mount::Mount( const Lumo::String & path ) : Mount( path, {} ) {}

Mount::Mount( const Lumo::String & path, const Lumo::String & entityType, AllMountFlags flags )
   : path_( path ), entityType_( entityType ), flags_( flags ) {}

void Mount::handleFlags( std::string_view mode ) {
   std::uint8_t flags = flags_.value();
   for ( const char letter : mode ) {
      const std::uint8_t flag = flagOfLetter( letter );
      if ( flag == 0 ) {
         Quon::throwRangeException( fmt::format(
            "Unknown letter {:?} in mount mode {:?}: known are r (read), w (write), i (initialize)",
            letter, mode ) );
      }
      flags |= flag;
   }
   flags_ = AllMountFlags( flags );
}

} // namespace Keldb

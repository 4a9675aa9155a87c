#include "Keldb/Mount.h"

#include <string>

#include <fmt/format.h>

#include "Quon/Exceptions.h"

namespace Keldb {
namespace {

struct ModeLetter {
   char letter;
   MountFlag flag;
   std::string_view meaning;
};

/// What is behind each letter of a mode string; explained in the header.
constexpr ModeLetter kModeLetters[] = { { 'r', MountFlag::read, "read" },
                                        { 'w', MountFlag::write, "write" },
                                        { 'i', MountFlag::initialize, "initialize" } };

constexpr std::uint8_t bitOf( MountFlag flag ) { return static_cast< std::uint8_t >( flag ); }

constexpr std::uint8_t kAllFlags = [] {
   std::uint8_t all = 0;
   for ( const ModeLetter & known : kModeLetters ) { all |= bitOf( known.flag ); }
   return all;
}();

std::uint8_t bitOfLetter( char letter, std::string_view mode ) {
   std::string letters;
   for ( const ModeLetter & known : kModeLetters ) {
      if ( known.letter == letter ) { return bitOf( known.flag ); }
      letters +=
         fmt::format( "{}{} ({})", letters.empty() ? "" : ", ", known.letter, known.meaning );
   }
   Quon::throwRangeException( fmt::format( "Unknown letter {:?} in mount mode {:?}: known are {}",
                                           letter, mode, letters ) );
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
   for ( const char letter : mode ) { flags |= bitOfLetter( letter, mode ); }
   flags_ = AllMountFlags( flags );
}

} // namespace Keldb

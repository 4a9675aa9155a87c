#include "agent/veloctl/Recording.h"

#include "agent/veloctl/Failures.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <google/protobuf/util/delimited_message_util.h>

namespace VeloCtl {

using google::protobuf::util::ParseDelimitedFromZeroCopyStream;
using velo::rpc::v1::RecordingEntry;

namespace {

constexpr std::uint32_t kFormat = 1;

std::ifstream opened( const std::string & path ) {
   std::ifstream file( path, std::ios::binary );
   // What can be opened may still not be readable: a directory, say.
   if ( file ) { file.peek(); }
   if ( file.bad() || !file.is_open() ) {
      throw WrongUse( fmt::format( "cannot read {}: {}", path, std::strerror( errno ) ) );
   }
   file.clear();
   return file;
}

} // namespace

Recording::Recording( const std::string & path )
   : path_( path ), file_( opened( path ) ), stream_( &file_ ) {
   RecordingEntry first;
   if ( !read( first ) ) { refuse( "it is empty" ); }
   if ( !first.has_header() ) { refuse( "it does not begin with a header" ); }
   header_ = first.header();
   if ( header_.format() != kFormat ) {
      refuse( fmt::format( "it has format {}, this veloctl knows format {}", header_.format(),
                           kFormat ) );
   }
}

bool Recording::next( RecordingEntry & entry ) {
   if ( !read( entry ) ) { return false; }
   if ( entry.entry_case() == RecordingEntry::ENTRY_NOT_SET || entry.has_header() ) {
      refuse( fmt::format( "entry {} is of no kind that this veloctl knows", entries_ - 1 ) );
   }
   if ( entry.at_us() < lastAtUs_ ) {
      refuse( fmt::format( "entry {} is older than the one before", entries_ - 1 ) );
   }
   lastAtUs_ = entry.at_us();
   return true;
}

bool Recording::read( RecordingEntry & entry ) {
   const std::int64_t begin = stream_.ByteCount();
   bool atTheEnd = false;
   entry.Clear();
   if ( !ParseDelimitedFromZeroCopyStream( &entry, &stream_, &atTheEnd ) ) {
      if ( atTheEnd ) { return false; }
      if ( entries_ == 0 ) { refuse( "it does not begin with a header" ); }
      refuse( fmt::format( "it is damaged or cut off in entry {}, which begins at byte {}",
                           entries_, begin ) );
   }
   ++entries_;
   return true;
}

void Recording::refuse( const std::string & why ) const {
   throw WrongUse( fmt::format( "{} is no recording to replay: {}", path_, why ) );
}

RecordingExtent extentOf( const std::string & path ) {
   Recording recording( path );
   RecordingExtent extent;
   for ( RecordingEntry entry; recording.next( entry ); ) {
      ++extent.entries;
      extent.lengthUs = entry.at_us();
   }
   return extent;
}

} // namespace VeloCtl

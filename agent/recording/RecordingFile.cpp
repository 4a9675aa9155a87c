#include "agent/recording/RecordingFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/util/delimited_message_util.h>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <velo/rpc/v1/recording.pb.h>

namespace VeloAgent {

RecordingFile::RecordingFile( const std::string & path )
   : path_( path ),
     file_( ::open( path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640 ) ) {
   if ( !file_ ) {
      throw std::runtime_error(
         fmt::format( "cannot record to {}: {}", path, std::strerror( errno ) ) );
   }
}

void RecordingFile::append( const velo::rpc::v1::RecordingEntry & entry ) {
   bytes_.clear();
   {
      google::protobuf::io::StringOutputStream stream( &bytes_ );
      google::protobuf::util::SerializeDelimitedToZeroCopyStream( entry, &stream );
   }
   std::string_view left = bytes_;
   while ( !left.empty() ) {
      const ssize_t written = ::write( *file_, left.data(), left.size() );
      if ( written >= 0 ) {
         left.remove_prefix( static_cast< std::size_t >( written ) );
      } else if ( errno != EINTR ) {
         const std::error_code error( errno, std::generic_category() );
         // Of no effect on what is no file; then there is nothing to read either.
         [[maybe_unused]] const int ignored = ::ftruncate( *file_, whole_ );
         throw std::system_error( error );
      }
   }
   whole_ += static_cast< off_t >( bytes_.size() );
}

} // namespace VeloAgent

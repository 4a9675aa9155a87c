/// A recording on disk: entries, each behind its length, see recording.proto.
///
/// Owner      the recorder
/// Thread     one at a time
/// Invariant  what the file holds can be read up to its end: an entry that could not be written
///            whole is taken out again

#pragma once

#include "agent/FileDescriptor.h"

#include <string>
#include <sys/types.h>

namespace velo::rpc::v1 {
class RecordingEntry;
}

namespace VeloAgent {

class RecordingFile {
 public:
   /// Begins an empty file, in place of what was there. Throws std::runtime_error with a text that
   /// says why it cannot.
   explicit RecordingFile( const std::string & path );

   /// Appends `entry`. Throws std::system_error.
   void append( const velo::rpc::v1::RecordingEntry & entry );

   const std::string & path() const { return path_; }

 private:
   const std::string path_;
   FileDescriptor file_;
   off_t whole_ = 0; ///< The end of the last entry.
   std::string bytes_;
};

} // namespace VeloAgent

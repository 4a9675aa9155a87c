/// A recording of the south side, as velo-agent --record FILE writes it (recording.proto).

#pragma once

#include "velo/rpc/v1/recording.pb.h"

#include <cstdint>
#include <fstream>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <string>

namespace VeloCtl {

/// Reads a recording from its beginning, once. Every error is a WrongUse that says what is wrong
/// with the file and where.
class Recording {
 public:
   /// Opens the file and checks its header.
   explicit Recording( const std::string & path );

   const velo::rpc::v1::RecordingEntry::Header & header() const { return header_; }

   /// The next entry behind the header; false when there is none.
   bool next( velo::rpc::v1::RecordingEntry & entry );

 private:
   /// False at the end of the file.
   bool read( velo::rpc::v1::RecordingEntry & entry );
   [[noreturn]] void refuse( const std::string & why ) const;

   const std::string path_;
   std::ifstream file_;
   google::protobuf::io::IstreamInputStream stream_;
   velo::rpc::v1::RecordingEntry::Header header_;
   std::uint64_t entries_ = 0; ///< Read so far, header included.
   std::uint64_t lastAtUs_ = 0;
};

/// How much there is in a recording, all of which is read and checked.
struct RecordingExtent {
   std::uint64_t entries = 0; ///< Without the header.
   std::uint64_t lengthUs = 0;
};
RecordingExtent extentOf( const std::string & path );

} // namespace VeloCtl

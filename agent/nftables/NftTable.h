/// One table of the running kernel, read through libnftables.
///
/// Owner      the source that polls it
/// Thread     any, but one at a time (a libnftables context is not thread-safe)
/// Invariant  what is asked of libnftables is always a JSON command, so that no table name, however
///            it is spelt, can be taken for a command
///
/// libnftables reports a failure as a text. Whether the table is gone, or only the reading failed,
/// is therefore not read from that text: the tables of the family are listed, and the table is gone
/// if that works and it is not among them.

#pragma once

#include "agent/nftables/NftJson.h"

#include <memory>
#include <stdexcept>
#include <string>

struct nft_ctx;

namespace VeloAgent {

struct NftTableName {
   std::string family;
   std::string name;

   std::string text() const { return family + '/' + name; }
};

/// libnftables or the kernel refused; the table may well be there.
class NftReadError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// Reading needs a capability that this process does not have.
class NftPermissionError : public NftReadError {
 public:
   using NftReadError::NftReadError;
};

/// The kernel has no such table; `others()` are those it has of this family, as FAMILY/NAME.
class NftNoSuchTable : public NftReadError {
 public:
   NftNoSuchTable( const NftTableName & name, std::vector< std::string > others );

   const std::vector< std::string > & others() const { return others_; }

 private:
   std::vector< std::string > others_;
};

class NftTable {
 public:
   /// Throws NftReadError or NftPermissionError where the kernel does not let this process ask.
   explicit NftTable( NftTableName name );

   const NftTableName & name() const { return name_; }

   /// All counters as the kernel has them now. Throws NftNoSuchTable, NftPermissionError,
   /// NftReadError (all survivable: read again later) and NftJsonError.
   NftCounters read();

 private:
   struct ContextFree {
      void operator()( nft_ctx * context ) const;
   };

   /// The output of one command. Throws NftReadError.
   std::string run( const std::string & jsonCommand );

   NftTableName name_;
   std::unique_ptr< nft_ctx, ContextFree > context_;
};

} // namespace VeloAgent

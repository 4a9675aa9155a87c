#pragma once

#include <cstdint>

#include "Quon/Quon.h"
#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/detail/PbrCountersKey.h"

namespace VeloSdkRpc {

/// The dictionary of the stream: the short key of every known long key, the last short key handed
/// out, and the short keys that the consumer has not been told the long key of.
///
/// Passive: the state machines fill it, the backlog consumes novelty, the manager clears it.
///
/// Owner      the manager, for its whole life; short keys are stable across watch periods
/// Thread     event loop only
/// Invariant  a short key is handed out once: `nextKey` only grows, and 0 is never handed out
class VELO_SDK_RPC_EXPORT PbrCountersKeyCompressionTable final : public Quon::Entity {
 public:
   using ShortKeys = Quon::HashMap2018< PbrCountersKey, std::uint64_t >;
   using NovelKeys = Quon::DenseMap2018<>;
   using HN_ShortKey = ShortKeys::Node;
   using HN_NovelKey = NovelKeys::Node;

   PbrCountersKeyCompressionTable();
   ~PbrCountersKeyCompressionTable() override;

   const Quon::TypeData & typeData() const override;

   /// Long key -> short key, to look up and iterate: `table->shortKey()[ key ]` is the entry or
   /// null.
   const ShortKeys & shortKey() const { return shortKey_; }
   /// Inserts `key` with `value`, or overwrites the value that it has. O(1).
   void shortKeyIs( const PbrCountersKey & key, std::uint64_t value );
   /// Removes `key` and returns the short key that it held; 0 if there was none. O(1).
   std::uint64_t shortKeyDel( const PbrCountersKey & key );
   void shortKeyDelAll();

   /// How often a key has lost its short key or got another one. As long as this stands still, what
   /// the table said about a key that it knew is still true.
   std::uint64_t pairingsBroken() const { return pairingsBroken_; }

   /// The last short key handed out; 0 in a new table.
   std::uint64_t nextKey() const { return nextKey_; }
   void nextKeyIs( std::uint64_t value ) { nextKey_ = value; }
   /// Adds `delta`, modulo 2^64, and returns the new value.
   std::uint64_t nextKeyInc( std::uint64_t delta ) { return nextKey_ += delta; }

   /// The short keys whose long key has not been sent yet.
   const NovelKeys & novelKey() const { return novelKey_; }
   void novelKeyIs( std::uint64_t shortKey );
   void novelKeyDel( std::uint64_t shortKey );
   void novelKeyDelAll();

   /// Whether `shortKey` is novel. Asking consumes: it is not novel afterwards. O(1).
   bool isNovelKey( std::uint64_t shortKey );

   /// Empties the novel set: what is in it will never be sent as new.
   void clearNovelKeys();

 private:
   ShortKeys shortKey_;
   std::uint64_t pairingsBroken_ = 0;
   std::uint64_t nextKey_ = 0;
   NovelKeys novelKey_;
};

VELO_SDK_RPC_EXPORT Lumo::Ptr< PbrCountersKeyCompressionTable >
pbrCountersKeyCompressionTableFactory();
VELO_SDK_RPC_EXPORT Lumo::Ptr< PbrCountersKeyCompressionTable > PbrCountersKeyCompressionTableIs();

} // namespace VeloSdkRpc

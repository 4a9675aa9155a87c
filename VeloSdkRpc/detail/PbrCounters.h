#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>
#include <utility>

#include "VeloSdkRpc/detail/PbrCountersKey.h"

namespace VeloSdkRpc {

/// One record of the stream: a short key, the long key that it stands for, the counters, and
/// whether the key is gone.
///
/// A value. Copying takes references on the strings of the long key and on `data`.
class VELO_SDK_RPC_EXPORT PbrCounters {
 public:
   using Data = Lumo::Ptr< const PolicyMap::Counters::CountersData >;

   PbrCounters() = default;
   PbrCounters( std::uint64_t shortKey, PbrCountersKey longKey, Data data, bool deletedKey )
      : shortKey_( shortKey ),
        longKey_( std::move( longKey ) ),
        data_( std::move( data ) ),
        deletedKey_( deletedKey ) {}

   /// Reads the text form at the cursor; `data`, if present, becomes an entity of its own.
   /// Errors: `Quon::ParseError`, with the path of the attribute.
   explicit PbrCounters( Quon::CharRange & text );

   /// Its image in shared memory. It holds one more reference on the `data` entity.
   struct Image {
      std::uint64_t shortKey;
      PbrCountersKey::Image longKey;
      Frell::EntityRef data;
      Frell::Flag deletedKey;
   };
   /// @name Hooks of the image, see QuonFrell/QuonFrell.h
   /// @{
   PbrCounters( const Image * image, Frell::Manager & manager );
   void frell_shmemify( void * dst, Frell::Manager * manager ) const;
   void frell_defrell( const void * src, Frell::SMgr< QuonFrell::EntityBase > * reader );
   void frell_restart( Frell::WMgr< QuonFrell::EntityBase > * writer );
   /// @}

   /// The key that the compression table assigned; the record's key in the backlog.
   const std::uint64_t & shortKey() const { return shortKey_; }
   const PbrCountersKey & longKey() const { return longKey_; }
   /// The counters in the mounted tree, shared; null when there are none or the key is deleted.
   const Data & data() const { return data_; }
   /// The long key disappeared.
   bool deletedKey() const { return deletedKey_; }

   /// Equal records have the same `data` entity: counters of equal contents are not enough.
   static bool isEq( const void * a, const void * b ) {
      const auto & left = *static_cast< const PbrCounters * >( a );
      const auto & right = *static_cast< const PbrCounters * >( b );
      return left.shortKey_ == right.shortKey_ && left.data_ == right.data_ &&
             left.deletedKey_ == right.deletedKey_ && left.longKey_ == right.longKey_;
   }
   friend bool operator==( const PbrCounters & a, const PbrCounters & b ) { return isEq( &a, &b ); }

   /// Whether the record differs from a default one.
   explicit operator bool() const;

   static constexpr bool kRelocatable = Lumo::isRelocatable< PbrCountersKey, Data >;
   static constexpr std::string_view kTypeName = "VeloSdkRpc::PbrCounters";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "shortKey", &PbrCounters::shortKey_ ),
                              Quon::attribute( "longKey", &PbrCounters::longKey_ ),
                              Quon::attribute( "data", &PbrCounters::data_ ),
                              Quon::attribute( "deletedKey", &PbrCounters::deletedKey_ ) );
   }

 private:
   std::uint64_t shortKey_ = 0;
   PbrCountersKey longKey_;
   Data data_;
   bool deletedKey_ = false;
};

VELO_SDK_RPC_EXPORT std::ostream & operator<<( std::ostream & os, const PbrCounters & record );

} // namespace VeloSdkRpc

#pragma once

#include <compare>
#include <cstdint>
#include <string_view>
#include <tuple>

#include "Lumo/Lumo.h"
#include "Quon/Optional.h"
#include "Quon/StringAttribute.h"
#include "Quon/Text.h"

/// Small types, one for each way in which a type can describe its attributes.
namespace Quon::test {

class Key {
 public:
   Key() = default;
   Key( Lumo::String name, unsigned rule ) : name_( std::move( name ) ), rule_( rule ) {}
   explicit Key( CharRange & text ) { parseText( text, *this ); }

   const Lumo::String & name() const { return name_; }

   bool operator==( const Key & ) const = default;
   friend std::ostream & operator<<( std::ostream & os, const Key & key ) {
      return printText( os, key );
   }

   static constexpr std::string_view kTypeName = "Test::Key";
   static constexpr auto attributes() {
      return std::make_tuple( attribute( "name", &Key::name_ ), attribute( "rule", &Key::rule_ ) );
   }

 private:
   Lumo::String name_;
   unsigned rule_ = 0;
};

/// An entity: given all of its attributes at construction.
class Data final : public Lumo::Node {
 public:
   Data( Lumo::String name, Key key ) : name_( std::move( name ) ), key_( std::move( key ) ) {
      ++living;
   }
   ~Data() override { --living; }

   const Lumo::String & name() const { return name_; }
   const Key & key() const { return key_; }

   static constexpr std::string_view kTypeName = "Test::Data";
   static constexpr auto attributes() {
      return std::make_tuple( attribute( "name", &Data::name ), attribute( "key", &Data::key ) );
   }

   static inline int living = 0;

 private:
   const Lumo::String name_;
   const Key key_;
};

struct Record {
   std::uint64_t id = 0;
   Key key;
   Optional< std::uint32_t > limit;
   Lumo::Ptr< const Data > data;
   std::int64_t balance = 0;
   bool live = false;

   static constexpr std::string_view kTypeName = "Test::Record";
   static constexpr auto attributes() {
      return std::make_tuple(
         attribute( "id", &Record::id ), attribute( "key", &Record::key ),
         attribute( "limit", &Record::limit ), attribute( "data", &Record::data ),
         attribute( "balance", &Record::balance ), attribute( "live", &Record::live ) );
   }
};

/// A set of bits: its attributes are computed.
struct Flags {
   std::uint8_t bits = 0;

   bool first() const { return bits & 1; }
   void firstIs( bool on ) { bits = static_cast< std::uint8_t >( ( bits & ~1 ) | on ); }
   bool second() const { return bits & 2; }
   void secondIs( bool on ) { bits = static_cast< std::uint8_t >( ( bits & ~2 ) | on << 1 ); }

   static constexpr std::string_view kTypeName = "Test::Flags";
   static constexpr auto attributes() {
      return std::make_tuple( attribute( "first", &Flags::first, &Flags::firstIs ),
                              attribute( "second", &Flags::second, &Flags::secondIs ) );
   }
};

/// Refuses names longer than eight bytes.
struct Checked {
   Lumo::String name_;

   const Lumo::String & name() const { return name_; }
   void nameIs( const Lumo::String & name ) { name_ = checkedString( name, 8 ); }

   static constexpr std::string_view kTypeName = "Test::Checked";
   static constexpr auto attributes() {
      return std::make_tuple( attribute( "name", &Checked::name, &Checked::nameIs ) );
   }
};

struct Empty {
   static constexpr std::string_view kTypeName = "Test::Empty";
   static constexpr auto attributes() { return std::make_tuple(); }
};

/// An entity that holds one of its own kind.
class Chain final : public Lumo::Node {
 public:
   explicit Chain( Lumo::Ptr< const Chain > next ) : next_( std::move( next ) ) {}

   const Lumo::Ptr< const Chain > & next() const { return next_; }

   static constexpr std::string_view kTypeName = "Test::Chain";
   static constexpr auto attributes() {
      return std::make_tuple( attribute( "next", &Chain::next ) );
   }

 private:
   const Lumo::Ptr< const Chain > next_;
};

} // namespace Quon::test

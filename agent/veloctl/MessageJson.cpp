#include "agent/veloctl/MessageJson.h"

#include "agent/JsonText.h"
#include "agent/veloctl/Failures.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <vector>

namespace VeloCtl {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using Json = nlohmann::ordered_json;

constexpr std::string_view kHex = "_hex";

char lower( char letter ) {
   return static_cast< char >( std::tolower( static_cast< unsigned char >( letter ) ) );
}

char upper( char letter ) {
   return static_cast< char >( std::toupper( static_cast< unsigned char >( letter ) ) );
}

/// "Mode" -> "MODE_", "ProgrammingState" -> "PROGRAMMING_STATE_".
std::string prefixOf( const EnumDescriptor & type ) {
   std::string prefix;
   for ( const char letter : type.name() ) {
      if ( letter >= 'A' && letter <= 'Z' && !prefix.empty() ) { prefix += '_'; }
      prefix += upper( letter );
   }
   return prefix + '_';
}

// --- Writing ------------------------------------------------------------------------------------

/// One value of `field`: element `index` of a repeated one, else the only one.
Json valueOf( const Message & message, const FieldDescriptor & field, int index ) {
   const Reflection & its = *message.GetReflection();
   const bool many = field.is_repeated();
   switch ( field.cpp_type() ) {
   case FieldDescriptor::CPPTYPE_UINT32:
      return many ? its.GetRepeatedUInt32( message, &field, index )
                  : its.GetUInt32( message, &field );
   case FieldDescriptor::CPPTYPE_UINT64:
      return many ? its.GetRepeatedUInt64( message, &field, index )
                  : its.GetUInt64( message, &field );
   case FieldDescriptor::CPPTYPE_BOOL:
      return many ? its.GetRepeatedBool( message, &field, index ) : its.GetBool( message, &field );
   case FieldDescriptor::CPPTYPE_ENUM:
      return wordOf( *field.enum_type(), many ? its.GetRepeatedEnumValue( message, &field, index )
                                              : its.GetEnumValue( message, &field ) );
   case FieldDescriptor::CPPTYPE_STRING:
      return many ? its.GetRepeatedString( message, &field, index )
                  : its.GetString( message, &field );
   case FieldDescriptor::CPPTYPE_MESSAGE:
      return jsonOf( many ? its.GetRepeatedMessage( message, &field, index )
                          : its.GetMessage( message, &field ) );
   default:
      throw std::logic_error( "no JSON for the type of " + field.full_name() );
   }
}

Json listOf( const Message & message, const FieldDescriptor & field ) {
   Json list = Json::array();
   for ( int i = 0; i < message.GetReflection()->FieldSize( message, &field ); ++i ) {
      list.push_back( valueOf( message, field, i ) );
   }
   return list;
}

// --- Reading ------------------------------------------------------------------------------------

void readMessage( const Json & json, Message & message, const std::string & where );

/// `where` is the place in the document; empty: all of it.
[[noreturn]] void fail( const std::string & where, const std::string & what ) {
   throw WrongUse( where.empty() ? what : where + ": " + what );
}

/// As it was written; not what is in a list or an object, be it however much and deep.
std::string shown( const Json & given ) {
   if ( given.is_array() && !given.empty() ) { return "[ ... ]"; }
   if ( given.is_object() && !given.empty() ) { return "{ ... }"; }
   return VeloAgent::lineOf( given );
}

[[noreturn]] void refuse( const std::string & where, const Json & given,
                          const std::string & right ) {
   fail( where, fmt::format( "{} is not {}", shown( given ), right ) );
}

std::uint64_t numberIn( const Json & json, std::uint64_t most, const std::string & where ) {
   const bool whole = json.is_number_unsigned();
   if ( !whole || json.get< std::uint64_t >() > most ) {
      refuse( where, json, fmt::format( "a number from 0 to {}", most ) );
   }
   return json.get< std::uint64_t >();
}

bool flagFrom( const Json & json, const std::string & where ) {
   if ( !json.is_boolean() ) { refuse( where, json, "true or false" ); }
   return json.get< bool >();
}

std::string textFrom( const Json & json, const std::string & where ) {
   if ( !json.is_string() ) { refuse( where, json, "a text" ); }
   return json.get< std::string >();
}

std::string bytesFrom( const Json & digits, const std::string & where ) {
   const auto bytes = VeloAgent::bytesOfHex( textFrom( digits, where ) );
   if ( !bytes ) { refuse( where, digits, "bytes as pairs of the digits 0 to 9 and a to f" ); }
   return *bytes;
}

const EnumValueDescriptor * enumFrom( const Json & json, const EnumDescriptor & type,
                                      const std::string & where ) {
   std::vector< std::string > words;
   for ( int i = 0; i < type.value_count(); ++i ) {
      const std::string word = wordOf( type, type.value( i )->number() );
      if ( json == word ) { return type.value( i ); }
      if ( type.value( i )->number() != 0 ) { words.push_back( word ); }
   }
   refuse( where, json, fmt::format( "one of {}", fmt::join( words, ", " ) ) );
}

void readValue( const Json & json, Message & message, const FieldDescriptor & field,
                const std::string & where ) {
   const Reflection & its = *message.GetReflection();
   const bool many = field.is_repeated();
   switch ( field.cpp_type() ) {
   case FieldDescriptor::CPPTYPE_UINT32: {
      const auto value = static_cast< std::uint32_t >(
         numberIn( json, std::numeric_limits< std::uint32_t >::max(), where ) );
      return many ? its.AddUInt32( &message, &field, value )
                  : its.SetUInt32( &message, &field, value );
   }
   case FieldDescriptor::CPPTYPE_UINT64: {
      const std::uint64_t value =
         numberIn( json, std::numeric_limits< std::uint64_t >::max(), where );
      return many ? its.AddUInt64( &message, &field, value )
                  : its.SetUInt64( &message, &field, value );
   }
   case FieldDescriptor::CPPTYPE_BOOL:
      return many ? its.AddBool( &message, &field, flagFrom( json, where ) )
                  : its.SetBool( &message, &field, flagFrom( json, where ) );
   case FieldDescriptor::CPPTYPE_ENUM: {
      const EnumValueDescriptor * const value = enumFrom( json, *field.enum_type(), where );
      return many ? its.AddEnum( &message, &field, value ) : its.SetEnum( &message, &field, value );
   }
   case FieldDescriptor::CPPTYPE_STRING:
      return many ? its.AddString( &message, &field, textFrom( json, where ) )
                  : its.SetString( &message, &field, textFrom( json, where ) );
   case FieldDescriptor::CPPTYPE_MESSAGE:
      return readMessage(
         json, many ? *its.AddMessage( &message, &field ) : *its.MutableMessage( &message, &field ),
         where );
   default:
      throw std::logic_error( "no JSON for the type of " + field.full_name() );
   }
}

void readField( const Json & json, Message & message, const FieldDescriptor & field,
                const std::string & where ) {
   if ( !field.is_repeated() ) { return readValue( json, message, field, where ); }
   if ( !json.is_array() ) { refuse( where, json, "a list" ); }
   std::size_t index = 0;
   for ( const Json & element : json ) {
      readValue( element, message, field, fmt::format( "{}[{}]", where, index++ ) );
   }
}

[[noreturn]] void refuseName( const std::string & name, const Descriptor & type,
                              const std::string & where ) {
   std::vector< std::string > names;
   names.reserve( static_cast< std::size_t >( type.field_count() ) );
   for ( int i = 0; i < type.field_count(); ++i ) { names.push_back( type.field( i )->name() ); }
   fail( where, fmt::format( "there is no {} here, only {}", VeloAgent::lineOf( Json( name ) ),
                             fmt::join( names, ", " ) ) );
}

/// The field that the member `name` is for. With `hex` when it gives the bytes as digits.
const FieldDescriptor & fieldFor( const std::string & name, const Descriptor & type, bool & hex,
                                  const std::string & where ) {
   hex = false;
   if ( const auto * const field = type.FindFieldByName( name ) ) { return *field; }
   if ( name.ends_with( kHex ) ) {
      const auto * const field =
         type.FindFieldByName( name.substr( 0, name.size() - kHex.size() ) );
      if ( field && field->type() == FieldDescriptor::TYPE_BYTES && !field->is_repeated() ) {
         hex = true;
         return *field;
      }
   }
   refuseName( name, type, where );
}

std::string memberOf( const std::string & where, const std::string & name ) {
   return where.empty() ? name : where + '.' + name;
}

/// A oneof has room for one.
void checkRoom( const Message & message, const FieldDescriptor & field,
                const std::string & where ) {
   const auto * const group = field.real_containing_oneof();
   if ( !group ) { return; }
   const auto * const taken = message.GetReflection()->GetOneofFieldDescriptor( message, group );
   if ( taken && taken != &field ) {
      fail( where,
            fmt::format( "there can be only one of {} and {}", taken->name(), field.name() ) );
   }
}

void readMessage( const Json & json, Message & message, const std::string & where ) {
   if ( !json.is_object() ) { refuse( where, json, "an object { ... }" ); }
   for ( const auto & [name, value] : json.items() ) {
      bool hex = false;
      const FieldDescriptor & field = fieldFor( name, *message.GetDescriptor(), hex, where );
      const std::string member = memberOf( where, name );
      checkRoom( message, field, where );
      if ( hex ) {
         message.GetReflection()->SetString( &message, &field, bytesFrom( value, member ) );
      } else if ( !json.contains( name + std::string( kHex ) ) ) {
         readField( value, message, field, member );
      }
   }
}

} // namespace

std::string wordOf( const EnumDescriptor & type, int value ) {
   const EnumValueDescriptor * const known = type.FindValueByNumber( value );
   if ( !known ) { return std::to_string( value ); }
   const std::string prefix = prefixOf( type );
   std::string word = known->name();
   if ( word.starts_with( prefix ) ) { word.erase( 0, prefix.size() ); }
   std::transform( word.begin(), word.end(), word.begin(), lower );
   return word;
}

Json jsonOf( const Message & message ) {
   Json object = Json::object();
   const Descriptor & type = *message.GetDescriptor();
   for ( int i = 0; i < type.field_count(); ++i ) {
      const FieldDescriptor & field = *type.field( i );
      if ( field.is_repeated() ) {
         object[field.name()] = listOf( message, field );
      } else if ( !field.has_presence() || message.GetReflection()->HasField( message, &field ) ) {
         const Json value = valueOf( message, field, 0 );
         if ( field.cpp_type() == FieldDescriptor::CPPTYPE_STRING ) {
            VeloAgent::addName( object, field.name(), value.get_ref< const std::string & >() );
         } else {
            object[field.name()] = value;
         }
      }
   }
   return object;
}

void readJson( std::string_view text, Message & message, const std::string & file ) {
   Json json;
   try {
      json = Json::parse( text );
   } catch ( const Json::parse_error & error ) {
      throw WrongUse( fmt::format( "{}: no JSON, from byte {} on", file, error.byte ) );
   }
   try {
      readMessage( json, message, "" );
   } catch ( const WrongUse & error ) { throw WrongUse( file + ": " + error.what() ); }
}

} // namespace VeloCtl

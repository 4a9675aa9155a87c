#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include "Quon/ParseError.h"
#include "Quon/TextTestTypes.h"

namespace Quon::test {
namespace {

/// Any bytes, now and then long, with those that need an escape made likely.
rc::Gen< std::string > anyBytes() {
   return rc::gen::container< std::string >( rc::gen::oneOf(
      rc::gen::arbitrary< char >(), rc::gen::elementOf( std::string( "\\'\"\n\r\t\0x{}", 10 ) ) ) );
}

Key anyKey() { return Key( *anyBytes(), *rc::gen::arbitrary< unsigned >() ); }

Record anyRecord() {
   Record record;
   record.id = *rc::gen::arbitrary< std::uint64_t >();
   record.key = anyKey();
   if ( *rc::gen::arbitrary< bool >() ) { record.limit = *rc::gen::arbitrary< std::uint32_t >(); }
   if ( *rc::gen::arbitrary< bool >() ) {
      record.data = Lumo::makeNode< Data >( *anyBytes(), anyKey() );
   }
   record.balance = *rc::gen::arbitrary< std::int64_t >();
   record.live = *rc::gen::arbitrary< bool >();
   return record;
}

RC_GTEST_PROP( TextProperty, EveryValueComesBackFromItsText, () ) {
   const Record record = anyRecord();
   const Record back = fromText< Record >( text( record ) );
   RC_ASSERT( back.id == record.id );
   RC_ASSERT( back.key == record.key );
   RC_ASSERT( back.limit == record.limit );
   RC_ASSERT( back.balance == record.balance );
   RC_ASSERT( back.live == record.live );
   RC_ASSERT( bool( back.data ) == bool( record.data ) );
   if ( record.data ) {
      RC_ASSERT( back.data->name() == record.data->name() );
      RC_ASSERT( back.data->key() == record.data->key() );
   }
}

RC_GTEST_PROP( TextProperty, ATextThatParsesIsTheOneTextOfItsValue, () ) {
   std::string damaged = text( anyRecord() );
   const auto edits = *rc::gen::inRange( 1, 4 );
   for ( int n = 0; n < edits && !damaged.empty(); ++n ) {
      const auto at = *rc::gen::inRange< std::size_t >( 0, damaged.size() );
      switch ( *rc::gen::inRange( 0, 3 ) ) {
      case 0:
         damaged.erase( at, *rc::gen::inRange< std::size_t >( 1, 5 ) );
         break;
      case 1:
         damaged[at] = *rc::gen::arbitrary< char >();
         break;
      default:
         damaged.insert( at, damaged.substr( *rc::gen::inRange< std::size_t >( 0, at + 1 ), 3 ) );
      }
   }
   try {
      RC_ASSERT( text( fromText< Record >( damaged ) ) == damaged );
      RC_TAG( "parsed" );
   } catch ( const ParseError & error ) {
      RC_TAG( "refused" );
      RC_ASSERT( error.position() <= damaged.size() );
   }
}

RC_GTEST_PROP( TextProperty, ArbitraryBytesAreRefused, () ) {
   RC_ASSERT_THROWS_AS( fromText< Record >( *anyBytes() ), ParseError );
}

/// What Python makes of the lines of `file`: each evaluated, then its parts on one line.
std::string readByPython( const std::string & file ) {
   const char * const script = "import sys\n"
                               "Value = lambda t, *a, **k: (t, a, k)\n"
                               "hexOf = lambda s: s.encode('latin-1').hex()\n"
                               "for line in open(sys.argv[1], newline='\\n'):\n"
                               "    t, _, k = eval(line)\n"
                               "    print(t, k['id'], hexOf(k['key'][2]['name']), k['limit'],\n"
                               "          k['data'] and hexOf(k['data'][1][0]), k['live'])\n";
   const std::string scriptFile = file + ".py";
   std::ofstream( scriptFile ) << script;
   const std::string command = fmt::format( "python3 '{}' '{}' 2>&1", scriptFile, file );
   const std::unique_ptr< FILE, int ( * )( FILE * ) > pipe( popen( command.c_str(), "r" ), pclose );
   std::string output;
   for ( int c; pipe && ( c = std::fgetc( pipe.get() ) ) != EOF; ) {
      output += static_cast< char >( c );
   }
   std::remove( scriptFile.c_str() );
   std::remove( file.c_str() );
   return output;
}

std::string hex( const Lumo::String & s ) {
   std::string digits;
   for ( const char c : s.view() ) {
      digits += fmt::format( "{:02x}", static_cast< unsigned char >( c ) );
   }
   return digits;
}

TEST( TextPython, ATextFormIsAPythonExpressionOfTheSameValue ) {
   ASSERT_EQ( std::system( "python3 --version >/dev/null 2>&1" ), 0 )
      << "python3 reads the text forms here; scripts/bootstrap test installs it";
   std::string everyByte;
   for ( int byte = 0; byte < 256; ++byte ) { everyByte += static_cast< char >( byte ); }

   std::vector< Record > records( 3 );
   records[1].id = 18446744073709551615ULL;
   records[1].key = Key( everyByte, 0 );
   records[1].live = true;
   records[2].limit = 5;
   records[2].data = Lumo::makeNode< Data >( everyByte, Key( "'\\", 1 ) );

   const std::string file = fmt::format( "{}quon_text_python_{}", testing::TempDir(), getpid() );
   std::ofstream lines( file );
   std::string expected;
   for ( const Record & r : records ) {
      lines << text( r ) << '\n';
      expected += fmt::format( "Test::Record {} {} {} {} {}\n", r.id, hex( r.key.name() ),
                               r.limit ? std::to_string( *r.limit ) : "None",
                               r.data ? hex( r.data->name() ) : "None", r.live ? "True" : "False" );
   }
   lines.close();
   EXPECT_EQ( readByPython( file ), expected );
}

} // namespace
} // namespace Quon::test

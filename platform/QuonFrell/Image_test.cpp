#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include "QuonFrell/QuonFrell.h"

namespace QuonFrell::test {
namespace {

class Thing : public Quon::Entity {
 public:
   explicit Thing( std::function< void() > whenGone = {} ) : whenGone_( std::move( whenGone ) ) {}
   ~Thing() override {
      if ( whenGone_ ) { whenGone_(); }
   }
   const Quon::TypeData & typeData() const override {
      static constexpr Quon::TypeData type{ "Test::Thing", {} };
      return type;
   }

 private:
   const std::function< void() > whenGone_;
};

class OtherThing final : public Thing {};

/// A value with one field of each kind that images know.
struct Sample {
   struct Image {
      std::uint64_t number;
      Frell::String name;
      Frell::EntityRef data;
      Frell::Flag flag;
   };

   void frell_shmemify( void * dst, Frell::Manager * manager ) const {
      auto & image = Frell::imageAt< Image >( dst );
      image.number = number;
      manager->stringIs( image.name, name );
      manager->entityIs( image.data, data );
      image.flag.value = flag;
   }
   void frell_defrell( const void * src, Frell::SMgr< EntityBase > * reader ) {
      const auto & image = Frell::imageAt< Image >( src );
      number = image.number;
      name = reader->string( image.name );
      data = reader->entity< Thing >( image.data );
      flag = reader->flag( image.flag );
   }
   void frell_restart( Frell::WMgr< EntityBase > * writer ) { writer->takenOver(); }

   bool operator==( const Sample & ) const = default;

   std::uint64_t number = 0;
   Lumo::String name;
   Lumo::Ptr< const Thing > data;
   bool flag = false;
};

/// Some images of one manager, all zero at first.
class ImageTest : public testing::Test {
 protected:
   ~ImageTest() override {
      for ( Sample::Image & each : images ) { clear( each ); }
      EXPECT_EQ( manager.stringsHeld(), 0U );
      EXPECT_EQ( manager.entitiesHeld(), 0U );
   }

   void write( Sample::Image & to, const Sample & sample ) {
      sample.frell_shmemify( &to, &manager );
   }
   Sample read( const Sample::Image & from ) { return imageValue< Sample >( &from, manager ); }
   void clear( Sample::Image & which ) { imageClear< Sample >( &which, manager ); }
   static Sample sample( const char * name, Lumo::Ptr< const Thing > data = nullptr ) {
      return Sample{ 7, name, std::move( data ), true };
   }

   const Lumo::Ptr< const Thing > thing = Lumo::makeNode< Thing >();
   Frell::Manager manager;
   std::array< Sample::Image, 3 > images{};
   Sample::Image & image = images[0];
};

TEST_F( ImageTest, AZeroImageIsADefaultValue ) { EXPECT_EQ( read( image ), Sample() ); }

TEST_F( ImageTest, AValueComesBackFromItsImage ) {
   const Sample written = sample( "a class name that is not short", thing );
   write( image, written );
   EXPECT_EQ( read( image ), written );
}

TEST_F( ImageTest, StringsKeepAnyBytes ) {
   Sample written;
   written.name = std::string_view( "\0\xff'\n\0", 5 );
   write( image, written );
   EXPECT_EQ( read( image ), written );
}

TEST_F( ImageTest, AnImageHoldsOneMoreReferenceOnItsEntity ) {
   write( image, sample( "a", thing ) );
   write( images[1], sample( "b", thing ) );
   EXPECT_EQ( thing->references(), 3U );
   write( image, sample( "rewritten", thing ) );
   EXPECT_EQ( thing->references(), 3U );
}

TEST_F( ImageTest, RewritingDropsTheReferenceHeldBefore ) {
   const auto next = Lumo::makeNode< const Thing >();
   write( image, sample( "a", thing ) );
   write( image, sample( "a", next ) );
   EXPECT_EQ( thing->references(), 1U );
   EXPECT_EQ( next->references(), 2U );
   write( image, sample( "a" ) );
   EXPECT_EQ( next->references(), 1U );
}

TEST_F( ImageTest, ClearingReleasesAllThatTheImageHeld ) {
   write( image, sample( "a class name that is not short", thing ) );
   clear( image );
   EXPECT_EQ( thing->references(), 1U );
   EXPECT_EQ( manager.stringsHeld(), 0U );
   EXPECT_EQ( manager.entitiesHeld(), 0U );
   EXPECT_EQ( read( image ), Sample() );
}

TEST_F( ImageTest, TheEntityMayUseTheManagerWhenItsLastReferenceGoes ) {
   auto leaving = Lumo::makeNode< const Thing >( [this] {
      EXPECT_EQ( read( image ).data, nullptr );
      write( images[1], sample( "written by the one that leaves", thing ) );
   } );
   write( image, sample( "a", std::exchange( leaving, nullptr ) ) );
   write( image, sample( "a" ) );
   EXPECT_EQ( read( images[1] ).data, thing );
}

TEST_F( ImageTest, RewritingForEverNeedsTwoBlocksOfEachSizeAtMost ) {
   for ( int n = 0; n < 10; ++n ) { write( image, sample( std::string( 1 << n, 'x' ).c_str() ) ); }
   const std::size_t size = manager.regionSize();
   for ( int n = 0; n < 1000; ++n ) {
      write( image, sample( std::string( 1 + n % 512, 'a' + n % 26 ).c_str() ) );
   }
   EXPECT_LE( manager.regionSize(), 2 * size );
}

TEST_F( ImageTest, TheRegionMayMoveWhileImagesPointIntoIt ) {
   write( image, sample( "first" ) );
   write( images[1], sample( std::string( 100000, 'x' ).c_str() ) );
   EXPECT_EQ( read( image ).name, "first" );
}

TEST_F( ImageTest, ARestartedWriterTakesTheValueOver ) {
   const Sample written = sample( "kept over the restart", thing );
   write( image, written );
   const auto references = thing->references();
   Frell::WMgr< EntityBase > writer( manager );
   imageRestart< Sample >( &image, writer );
   EXPECT_EQ( writer.valuesTakenOver(), 1U );
   EXPECT_EQ( read( image ), written );
   EXPECT_EQ( thing->references(), references );
}

/// What goes wrong, told by the error's text.
class CorruptImageTest : public ImageTest {
 protected:
   CorruptImageTest() {
      write( image, sample( "class-a", thing ) );
      intact_ = image;
   }
   ~CorruptImageTest() override { image = intact_; }

   std::string errorOfReading() {
      try {
         read( image );
      } catch ( const Frell::CorruptImage & error ) { return error.what(); }
      return "read without an error";
   }

 private:
   Sample::Image intact_{};
};

TEST_F( CorruptImageTest, AStringOutsideOfTheRegionIsRefused ) {
   image.name.chars.offset = 0xfffffff0;
   EXPECT_EQ( errorOfReading(), "no string of 7 bytes lies at offset 4294967280 of the region" );
}

TEST_F( CorruptImageTest, AStringOfAnotherSizeIsRefused ) {
   image.name.chars.size = 0xffffffff;
   EXPECT_EQ( errorOfReading(), "no string of 4294967295 bytes lies at offset 8 of the region" );
   image.name.chars.size = 0;
   EXPECT_EQ( errorOfReading(), "no string of 0 bytes lies at offset 8 of the region" );
}

TEST_F( CorruptImageTest, AReferenceThatIsNotHeldIsRefused ) {
   image.data.slot = 99;
   EXPECT_EQ( errorOfReading(), "no entity is held in slot 99, generation 1" );
   image.data = { 0, 1 };
   EXPECT_EQ( errorOfReading(), "no entity is held in slot 0, generation 1" );
}

TEST_F( CorruptImageTest, AReferenceThatWasDroppedIsRefusedAlsoWhenItsSlotIsInUseAgain ) {
   write( images[1], sample( "b", thing ) );
   const Frell::EntityRef dropped = images[1].data;
   clear( images[1] );
   write( images[1], sample( "b", thing ) );
   image.data = dropped;
   EXPECT_EQ( errorOfReading(), "no entity is held in slot 2, generation 1" );
}

TEST_F( CorruptImageTest, AnEntityOfAnotherTypeIsRefused ) {
   Frell::SMgr< EntityBase > reader( manager );
   EXPECT_EQ( reader.entity< Quon::Entity >( image.data ), thing );
   EXPECT_THROW( reader.entity< OtherThing >( image.data ), Frell::CorruptImage );
}

TEST_F( CorruptImageTest, AFlagThatIsNoBoolIsRefused ) {
   image.flag.value = 2;
   EXPECT_EQ( errorOfReading(), "a flag has the value 2" );
}

TEST_F( CorruptImageTest, WritingOverACorruptStringIsRefusedToo ) {
   image.name.chars.offset = 12;
   EXPECT_THROW( write( image, sample( "b" ) ), Frell::CorruptImage );
   EXPECT_EQ( image.name.chars.offset, 12U );
}

/// Bytes that are likely to name something that exists.
rc::Gen< std::vector< std::uint8_t > > imageBytes() {
   return rc::gen::container< std::vector< std::uint8_t > >(
      sizeof( Sample::Image ),
      rc::gen::oneOf( rc::gen::just( std::uint8_t{ 0 } ), rc::gen::inRange< std::uint8_t >( 0, 20 ),
                      rc::gen::arbitrary< std::uint8_t >() ) );
}

RC_GTEST_PROP( CorruptImageProperty, ArbitraryBytesNeverDoMoreThanRaiseTheError, () ) {
   Frell::Manager manager;
   std::array< Sample::Image, 4 > images{};
   for ( int step = 0; step < 20; ++step ) {
      auto & image = images[*rc::gen::inRange< std::size_t >( 0, images.size() )];
      if ( *rc::gen::inRange( 0, 4 ) == 0 ) {
         const auto bytes = *imageBytes();
         const auto from = *rc::gen::inRange< std::size_t >( 0, bytes.size() );
         const auto some = *rc::gen::inRange< std::size_t >( 1, bytes.size() - from + 1 );
         std::memcpy( reinterpret_cast< std::byte * >( &image ) + from, bytes.data(), some );
      }
      const Sample sample{ 1, *rc::gen::arbitrary< std::string >(), Lumo::makeNode< Thing >(),
                           true };
      try {
         if ( *rc::gen::arbitrary< bool >() ) { imageValue< Sample >( &image, manager ); }
         sample.frell_shmemify( &image, &manager );
         RC_ASSERT( imageValue< Sample >( &image, manager ) == sample );
      } catch ( const Frell::CorruptImage & ) { image = {}; }
   }
}

} // namespace
} // namespace QuonFrell::test

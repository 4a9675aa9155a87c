// Images in shared memory that somebody else writes over. The input is a script of single bytes:
// what is done, to which of a few images, with what.

#include <array>
#include <cstring>

#include "QuonFrell/QuonFrell.h"
#include "VeloSdkRpc/detail/PbrCounters.h"
#include "tests/fuzz/Fuzz.h"

namespace Fuzz::Images {
namespace {

using PolicyMap::Counters::CountersData;
using PolicyMap::Counters::PolicyMapKey;
using VeloSdkRpc::PbrCounters;
using VeloSdkRpc::PbrCountersKey;

class OtherEntity final : public Quon::Entity {
 public:
   const Quon::TypeData & typeData() const override {
      static constexpr Quon::TypeData data{ "Test::OtherEntity", {} };
      return data;
   }
};

class Script {
 public:
   explicit Script( std::string_view bytes ) : bytes_( bytes ) {}

   bool over() const { return bytes_.empty(); }
   /// Zeros without end behind the last.
   unsigned char next() {
      if ( over() ) { return 0; }
      const auto byte = static_cast< unsigned char >( bytes_.front() );
      bytes_.remove_prefix( 1 );
      return byte;
   }

 private:
   std::string_view bytes_;
};

class SharedMemory {
 public:
   explicit SharedMemory( std::string_view script ) : script_( script ) {}

   void run() {
      while ( !script_.over() ) {
         try {
            step();
         } catch ( const Frell::CorruptImage & ) {} // Refused, as it should be.
      }
      manager_ = std::nullopt;
      for ( const auto & each : counters_ ) {
         require( each->references() == 1, "the manager keeps no reference when it goes" );
      }
   }

 private:
   using Image = PbrCounters::Image;

   void step() {
      const unsigned char what = script_.next();
      Image & image = anyImage();
      switch ( what % 8 ) {
      case 0:
         return write( image );
      case 1:
         return scribble( image );
      case 2:
         image = anyImage(); // Two say that they hold the same.
         return;
      case 3:
         QuonFrell::imageValue< PbrCounters >( &image, *manager_ );
         return;
      case 4:
         return QuonFrell::imageClear< PbrCounters >( &image, *manager_ );
      case 5: {
         Frell::WMgr< QuonFrell::EntityBase > writer( *manager_ );
         return QuonFrell::imageRestart< PbrCounters >( &image, writer );
      }
      case 6:
         return copyWord( image );
      default:
         manager_->entityIs( image.data, other_ ); // An entity of another type.
      }
   }

   void write( Image & image ) {
      const PbrCounters written = anyRecord();
      written.frell_shmemify( &image, &*manager_ );
      require( QuonFrell::imageValue< PbrCounters >( &image, *manager_ ) == written,
               "a value comes back from its image" );
   }

   void scribble( Image & image ) {
      const std::size_t from = script_.next() % sizeof( image );
      const std::size_t most = sizeof( image ) - from;
      for ( std::size_t n = 0, count = script_.next() % 8; n <= count && n < most; ++n ) {
         const unsigned char byte = script_.next();
         std::memcpy( reinterpret_cast< unsigned char * >( &image ) + from + n, &byte, 1 );
      }
   }

   /// What one field refers to, another does.
   void copyWord( Image & image ) {
      constexpr std::size_t kWord = sizeof( Frell::String ), kWords = sizeof( Image ) / kWord;
      const auto * from = reinterpret_cast< const unsigned char * >( &anyImage() );
      std::memmove( reinterpret_cast< unsigned char * >( &image ) + script_.next() % kWords * kWord,
                    from + script_.next() % kWords * kWord, kWord );
   }

   Image & anyImage() { return images_[script_.next() % images_.size()]; }

   /// Short, long, and longer than some attributes may be.
   Lumo::String anyName() {
      constexpr std::array< std::size_t, 8 > kSizes = { 0, 1, 7, 8, 15, 16, 200, 65'536 };
      const unsigned char of = script_.next();
      return std::string( kSizes[of % kSizes.size()], static_cast< char >( 'a' + of / 16 ) );
   }

   PbrCounters anyRecord() {
      const unsigned char of = script_.next();
      PbrCounters::Data data;
      if ( of % 3 != 0 ) { data = counters_[of % counters_.size()]; }
      const Lumo::String policy = anyName();
      return PbrCounters( of,
                          PbrCountersKey( PolicyMapKey( allowed( policy ) ), anyName(), anyName() ),
                          data, of & 1 );
   }
   static Lumo::String allowed( const Lumo::String & name ) {
      return name.size() <= Quon::kMaxStringLength ? name : "shorter";
   }

   Script script_;
   const std::array< Lumo::Ptr< const CountersData >, 2 > counters_ = {
      Lumo::makeNode< CountersData >( "a" ), Lumo::makeNode< CountersData >( "b" ) };
   const Lumo::Ptr< const OtherEntity > other_ = Lumo::makeNode< OtherEntity >();
   std::optional< Frell::Manager > manager_{ std::in_place };
   std::array< Image, 3 > images_{};
};

void run( std::string_view input ) { SharedMemory( input ).run(); }

const Target target( "Images", run );

} // namespace
} // namespace Fuzz::Images

#include "Lumo/Trace.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

namespace Lumo {
namespace {

std::atomic< TraceSink * > installedSink{ nullptr };

/// All handles and the masks chosen by name. Never destroyed: handles are used until the very end.
class TraceRegistry {
 public:
   static TraceRegistry & instance() {
      static auto * registry = new TraceRegistry;
      return *registry;
   }

   Ptr< TraceHandle > handle( std::string_view name, bool obeyEnvironment ) {
      const std::lock_guard guard( mutex_ );
      Ptr< TraceHandle > & known = handles_[std::string( name )];
      if ( !known ) {
         known = makeNode< TraceHandle >( name );
         known->levelsIs( chosenMask( name, obeyEnvironment ) );
      }
      return known;
   }

   void levelsIs( std::string_view name, std::uint32_t mask ) {
      const std::lock_guard guard( mutex_ );
      if ( name == "*" ) { byApi_.clear(); }
      byApi_[std::string( name )] = mask;
      for ( auto & [handleName, handle] : handles_ ) {
         if ( name == "*" || name == handleName ) { handle->levelsIs( mask ); }
      }
   }

 private:
   using Masks = std::map< std::string, std::uint32_t, std::less<> >;

   TraceRegistry() {
      if ( const char * text = std::getenv( "VELO_TRACE" ) ) { parseEnvironment( text ); }
   }

   /// NAME/LEVEL or NAME/FIRST-LAST, separated by commas. What cannot be read is told and ignored.
   void parseEnvironment( std::string_view text ) {
      while ( !text.empty() ) {
         const std::string_view item = text.substr( 0, text.find( ',' ) );
         text.remove_prefix( std::min( text.size(), item.size() + 1 ) );
         const std::size_t slash = item.rfind( '/' );
         int first = -1, last = -1;
         if ( slash != item.npos ) {
            const char * end = item.data() + item.size();
            auto [at, error] = std::from_chars( item.data() + slash + 1, end, first );
            last = first;
            if ( at != end && *at == '-' ) { at = std::from_chars( at + 1, end, last ).ptr; }
            if ( at != end ) { first = -1; }
         }
         if ( first < 0 || last < first || last > 31 ) {
            std::fprintf( stderr,
                          "VELO_TRACE: \"%.*s\" is not NAME/LEVEL or NAME/FIRST-LAST with "
                          "levels 0 to 31; ignored\n",
                          static_cast< int >( item.size() ), item.data() );
            continue;
         }
         byEnvironment_[std::string( item.substr( 0, slash ) )] |= traceLevels( first, last );
      }
   }

   std::uint32_t chosenMask( std::string_view name, bool obeyEnvironment ) const {
      if ( const auto mask = find( byApi_, name ) ) { return *mask; }
      const auto * mask = obeyEnvironment ? find( byEnvironment_, name ) : nullptr;
      return mask ? *mask : 0;
   }

   static const std::uint32_t * find( const Masks & masks, std::string_view name ) {
      auto at = masks.find( name );
      if ( at == masks.end() ) { at = masks.find( "*" ); }
      return at == masks.end() ? nullptr : &at->second;
   }

   std::mutex mutex_;
   std::map< std::string, Ptr< TraceHandle >, std::less<> > handles_;
   Masks byApi_;
   Masks byEnvironment_;
};

} // namespace

TraceSink::~TraceSink() = default;

TraceSink * traceSinkIs( TraceSink * sink ) { return installedSink.exchange( sink ); }

void traceLevelsIs( std::string_view name, std::uint32_t mask ) {
   TraceRegistry::instance().levelsIs( name, mask );
}

Ptr< TraceHandle > Platform::getDebugHandler( std::string_view name, bool obeyEnvironment ) {
   return TraceRegistry::instance().handle( name, obeyEnvironment );
}

void Impl::traceEmit( const TraceHandle & handle, int level, TraceLocation where,
                      std::string_view text ) {
   const TraceRecord record{ handle.name(), level, where, text };
   if ( TraceSink * sink = installedSink.load() ) {
      sink->emit( record );
      return;
   }
   std::fprintf( stderr, "%.*s/%d %s:%u: %.*s\n", static_cast< int >( record.handle.size() ),
                 record.handle.data(), level, where.file_name(), where.line(),
                 static_cast< int >( text.size() ), text.data() );
}

} // namespace Lumo

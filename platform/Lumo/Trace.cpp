#include "Lumo/Trace.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>

namespace Lumo {
namespace {

std::atomic< TraceSink * > installedSink{ nullptr };

using MasksByName = std::map< std::string, std::uint32_t, std::less<> >;

/// Writes a line to standard error in one go. Where nobody reads it, it is lost.
void say( std::string line ) {
   line += '\n';
   static_cast< void >( std::fwrite( line.data(), 1, line.size(), stderr ) );
}

std::optional< int > levelFrom( std::string_view text ) {
   const char * end = text.data() + text.size();
   unsigned level = 0;
   const auto [at, error] = std::from_chars( text.data(), end, level );
   if ( error != std::errc() || at != end || level > kLastTraceLevel ) { return std::nullopt; }
   return static_cast< int >( level );
}

/// The mask of LEVEL or FIRST-LAST.
std::optional< std::uint32_t > levelsFrom( std::string_view text ) {
   const std::size_t dash = text.find( '-' );
   const auto first = levelFrom( text.substr( 0, dash ) );
   const auto last = dash == text.npos ? first : levelFrom( text.substr( dash + 1 ) );
   if ( !first || !last || *last < *first ) { return std::nullopt; }
   return traceLevels( *first, *last );
}

/// All handles and the masks chosen by name. Never destroyed: handles are used until the very end.
class TraceRegistry {
 public:
   static TraceRegistry & instance() {
      static auto * registry = new TraceRegistry;
      return *registry;
   }

   Ptr< TraceHandle > handle( std::string_view name, bool obeyEnvironment ) {
      const std::lock_guard guard( mutex_ );
      Known & known = handles_[std::string( name )];
      if ( !known.handle ) {
         known = { makeNode< TraceHandle >( name ), obeyEnvironment };
         known.handle->levelsIs( chosenMask( name, obeyEnvironment ) );
      }
      return known.handle;
   }

   void levelsIs( std::string_view name, std::uint32_t mask ) {
      const std::lock_guard guard( mutex_ );
      if ( name == "*" ) { byApi_.clear(); }
      byApi_[std::string( name )] = mask;
      for ( auto & [handleName, known] : handles_ ) {
         if ( name == "*" || name == handleName ) { known.handle->levelsIs( mask ); }
      }
   }

   void save( MasksByName & handles, MasksByName & byApi ) {
      const std::lock_guard guard( mutex_ );
      for ( const auto & [name, known] : handles_ ) { handles[name] = known.handle->levels(); }
      byApi = byApi_;
   }

   void restore( const MasksByName & handles, const MasksByName & byApi ) {
      const std::lock_guard guard( mutex_ );
      byApi_ = byApi;
      for ( auto & [name, known] : handles_ ) {
         const auto saved = handles.find( name );
         known.handle->levelsIs(
            saved != handles.end() ? saved->second : chosenMask( name, known.obeysEnvironment ) );
      }
   }

 private:
   struct Known {
      Ptr< TraceHandle > handle;
      bool obeysEnvironment = false;
   };

   TraceRegistry() {
      if ( const char * text = std::getenv( "VELO_TRACE" ) ) { parseEnvironment( text ); }
   }

   void parseEnvironment( std::string_view text ) {
      while ( !text.empty() ) {
         const std::string_view item = text.substr( 0, text.find( ',' ) );
         text.remove_prefix( std::min( text.size(), item.size() + 1 ) );
         const std::size_t slash = item.rfind( '/' );
         const auto levels =
            slash == item.npos ? std::nullopt : levelsFrom( item.substr( slash + 1 ) );
         if ( levels && slash != 0 ) {
            byEnvironment_[std::string( item.substr( 0, slash ) )] |= *levels;
         } else {
            say( fmt::format( "VELO_TRACE: \"{}\" is not NAME/LEVEL or NAME/FIRST-LAST with levels "
                              "0 to 31; ignored",
                              item ) );
         }
      }
   }

   std::uint32_t chosenMask( std::string_view name, bool obeyEnvironment ) const {
      if ( const auto mask = find( byApi_, name ) ) { return *mask; }
      const auto * mask = obeyEnvironment ? find( byEnvironment_, name ) : nullptr;
      return mask ? *mask : 0;
   }

   static const std::uint32_t * find( const MasksByName & masks, std::string_view name ) {
      auto at = masks.find( name );
      if ( at == masks.end() ) { at = masks.find( "*" ); }
      return at == masks.end() ? nullptr : &at->second;
   }

   std::mutex mutex_;
   std::map< std::string, Known > handles_;
   MasksByName byApi_;
   MasksByName byEnvironment_;
};

} // namespace

TraceSink::~TraceSink() = default;

TraceSink * traceSinkIs( TraceSink * sink ) { return installedSink.exchange( sink ); }

void traceLevelsIs( std::string_view name, std::uint32_t mask ) {
   TraceRegistry::instance().levelsIs( name, mask );
}

struct TraceLevelsScope::Saved {
   MasksByName handles;
   MasksByName byApi;
};

TraceLevelsScope::TraceLevelsScope() : saved_( std::make_unique< Saved >() ) {
   TraceRegistry::instance().save( saved_->handles, saved_->byApi );
}

TraceLevelsScope::~TraceLevelsScope() {
   TraceRegistry::instance().restore( saved_->handles, saved_->byApi );
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
   say( fmt::format( "{}/{} {}:{}: {}", record.handle, level, where.file_name(), where.line(),
                     text ) );
}

} // namespace Lumo

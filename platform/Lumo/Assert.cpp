#include "Lumo/Assert.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Lumo {
namespace {

std::atomic< AssertionHandler * > installedHandler{ nullptr };

} // namespace

AssertionHandler::~AssertionHandler() = default;

AssertionHandler * assertionHandlerIs( AssertionHandler * handler ) {
   return installedHandler.exchange( handler );
}

std::string AssertionFailure::text() const {
   return fmt::format( "{}:{}: {}: assertion failed: {}{}{}", where.file_name(), where.line(),
                       where.function_name(), condition, message.empty() ? "" : ": ", message );
}

void Impl::vfmassert( std::string_view condition, std::string_view message,
                      std::source_location where ) {
   const AssertionFailure failure{ condition, message, where };
   if ( AssertionHandler * handler = installedHandler.load() ) {
      handler->assertionFailed( failure );
   }
   std::fprintf( stderr, "%s\n", failure.text().c_str() );
   std::abort();
}

} // namespace Lumo

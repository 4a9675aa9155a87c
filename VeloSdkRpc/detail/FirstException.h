#pragma once

#include <exception>
#include <utility>

namespace VeloSdkRpc::detail {

/// Lets a pass over many items go on when one of them throws, so that a broken consumer costs
/// nothing but its own item; the first exception leaves when the pass is over.
class FirstException {
 public:
   template< class Step >
   void guard( Step && step ) {
      try {
         step();
      } catch ( ... ) {
         if ( !first_ ) { first_ = std::current_exception(); }
      }
   }

   void rethrow() {
      if ( first_ ) { std::rethrow_exception( std::exchange( first_, nullptr ) ); }
   }

 private:
   std::exception_ptr first_;
};

} // namespace VeloSdkRpc::detail

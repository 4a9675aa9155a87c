#pragma once

#include <utility>

namespace Lumo {

/// Does something when its scope ends, however that happens.
///
///    const auto guard = Lumo::onScopeExit( [ & ] { busy_ = false; } );
template< class Action >
class ScopeExit {
 public:
   explicit ScopeExit( Action action ) : action_( std::move( action ) ) {}
   ~ScopeExit() { action_(); }
   ScopeExit( const ScopeExit & ) = delete;
   ScopeExit & operator=( const ScopeExit & ) = delete;

 private:
   Action action_;
};

template< class Action >
[[nodiscard]] ScopeExit< Action > onScopeExit( Action action ) {
   return ScopeExit< Action >( std::move( action ) );
}

} // namespace Lumo

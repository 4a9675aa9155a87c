#pragma once

#include <type_traits>

#include "Lumo/Ptr.h"

namespace VeloSdkRpc::detail {

/// A child machine below the root: it has no scan task and no in-reactor flag of its own; the
/// root's hold for the whole tree.
///
/// `Base` is what the machine makes of its entity.
template< class Root, class TopLevel, class Base >
class BelowRootSm : public Base {
 public:
   /// Null once a machine on the way there has been let go.
   Root * root() const {
      if constexpr ( std::is_same_v< decltype( this->parent() ), Root * > ) {
         return this->parent();
      } else {
         return this->parent() ? this->parent()->root() : nullptr;
      }
   }
   Lumo::Ptr< TopLevel > topLevel() const { return root() ? root()->topLevel() : nullptr; }

   bool shouldYield0() const { return root() && root()->shouldYield0(); }
   bool inTask0() const { return root() && root()->inTask0(); }
   bool inputScanFlag() const { return this->attached() && root()->inputScanFlag(); }

   Lumo::Ptr< Root > inReactorOwner() { return Lumo::Ptr< Root >( root() ); }
   void inReactorIs( bool inReactor ) override {
      if ( Root * const shared = root() ) { shared->inReactorIs( inReactor ); }
   }
   bool inReactor() const override { return root() && root()->inReactor(); }

 protected:
   using Base::Base;
};

} // namespace VeloSdkRpc::detail

#pragma once

#include <memory>

#include "Oru/Oru.h"

namespace VeloSdkRpc::test {

/// Every ask goes on, and is counted.
class CountsAsks final : public Oru::SlicePolicy {
 public:
   explicit CountsAsks( int & asks ) : asks_( asks ) {}

   void sliceBegins() override {}
   std::uint32_t consult() override {
      ++asks_;
      return 1;
   }

 private:
   int & asks_;
};

/// The event loop of a test: a scheduler of its own, in place of the process's for as long as this
/// lives, driven step by step. Slices are endless unless a test says otherwise, or always used up
/// in builds of the always-yield preset.
class Loop {
 public:
   Loop() : scheduler_( Lumo::makeNode< Oru::TaskScheduler >() ) {
      if ( !Oru::TaskScheduler::grantsNoSlices() ) { endlessSlices(); }
      Oru::TaskSchedulerRoot::schedulerIs( scheduler_ );
   }
   ~Loop() { Oru::TaskSchedulerRoot::schedulerIs( nullptr ); }
   Loop( const Loop & ) = delete;
   Loop & operator=( const Loop & ) = delete;

   void endlessSlices() { yieldsAfter( ~std::uint32_t{ 0 } ); }
   /// The first `asks` asks of every slice go on: a run handles `asks` + 1 items.
   void yieldsAfter( std::uint32_t asks ) {
      scheduler_->slicePolicyIs( std::make_unique< Oru::YieldsAfter >( asks ) );
   }
   /// Slices are endless, and every ask is counted in `asks`.
   void countsAsks( int & asks ) {
      scheduler_->slicePolicyIs( std::make_unique< CountsAsks >( asks ) );
   }
   void alwaysYields() { scheduler_->slicePolicyIs( std::make_unique< Oru::AlwaysYield >() ); }

   bool runOne() { return scheduler_->runOne(); }
   std::size_t runUntilIdle() { return scheduler_->runUntilIdle(); }
   std::size_t pending() const { return scheduler_->pending(); }

   const Lumo::Ptr< Oru::TaskScheduler > & scheduler() const { return scheduler_; }

 private:
   const Lumo::Ptr< Oru::TaskScheduler > scheduler_;
};

} // namespace VeloSdkRpc::test

#pragma once

#include <chrono>
#include <cstdint>

#include "Lumo/Export.h"
#include "Oru/Clock.h"

/// How long a slice is: the scheduler's only idea of when a task has worked long enough.
///
/// Tasks ask after every item, so the policy is not consulted every time. It is told that a slice
/// begins, then hands out grants: so many asks may go on before it wants to be consulted again.
///
///    sliceBegins()   consult() -> 3    ask ask ask   consult() -> 5   ask ask ...   consult() -> 0
///                                      go  go  go                     go  go            yield

namespace Oru {

/// Owner      the scheduler that it was given to
/// Thread     as its scheduler
class VELO_PLATFORM_EXPORT SlicePolicy {
 public:
   virtual ~SlicePolicy();

   /// A new slice: what was granted before and not used is forgotten.
   virtual void sliceBegins() = 0;

   /// How many asks may go on, the one in hand included; 0: the slice is used up. After a 0 it is
   /// not consulted again in this slice.
   virtual std::uint32_t consult() = 0;

   /// By how much the slice in progress has been exceeded; zero when that is not worth counting.
   virtual std::chrono::nanoseconds overstay();
};

/// A slice of time. The clock is read about sixteen times per slice, however fast the asks come:
/// from one ask at a time in the beginning, the stride between two readings grows at most twofold
/// per reading and follows the measured pace. So an item that takes long is noticed at once while
/// items are slow, and after at most a stride when they suddenly become so.
class VELO_PLATFORM_EXPORT TimeSlice final : public SlicePolicy {
 public:
   /// `clock` must outlive this. An overstay of up to `tolerance` is not counted; left out, it is
   /// as long as the slice.
   explicit TimeSlice( std::chrono::nanoseconds duration, Clock & clock = steadyClock() )
      : TimeSlice( duration, clock, duration ) {}
   TimeSlice( std::chrono::nanoseconds duration, Clock & clock, std::chrono::nanoseconds tolerance )
      : duration_( duration ), tolerance_( tolerance ), clock_( clock ) {}

   void sliceBegins() override;
   std::uint32_t consult() override;
   std::chrono::nanoseconds overstay() override;

 private:
   const std::chrono::nanoseconds duration_;
   const std::chrono::nanoseconds tolerance_;
   Clock & clock_;
   std::chrono::nanoseconds began_{ 0 };
   std::chrono::nanoseconds lastReading_{ 0 };
   std::uint32_t stride_ = 0; ///< Asks granted at the last reading; 0: none read yet.
};

/// For tests: the first `asks` asks of a slice go on, all later ones are told to yield.
class VELO_PLATFORM_EXPORT YieldsAfter final : public SlicePolicy {
 public:
   explicit YieldsAfter( std::uint32_t asks ) : asks_( asks ) {}

   void sliceBegins() override;
   std::uint32_t consult() override;

 private:
   const std::uint32_t asks_;
   std::uint32_t left_ = 0;
};

/// Every ask is told to yield, so that every way of resuming is taken all the time.
class VELO_PLATFORM_EXPORT AlwaysYield final : public SlicePolicy {
 public:
   void sliceBegins() override;
   std::uint32_t consult() override;
};

} // namespace Oru

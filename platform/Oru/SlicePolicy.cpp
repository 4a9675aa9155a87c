#include "Oru/SlicePolicy.h"

#include <algorithm>
#include <utility>

namespace Oru {
namespace {

/// Readings of the clock per slice. A slice is exceeded by about one part in this many.
constexpr int kReadingsPerSlice = 16;

/// Longest stride: bounds what a sudden change of pace can cost. Even at a few nanoseconds per
/// item, one reading in so many asks is lost in the noise.
constexpr std::uint32_t kLongestStride = 1024;

} // namespace

SlicePolicy::~SlicePolicy() = default;

std::chrono::nanoseconds SlicePolicy::overstay() { return {}; }

void TimeSlice::sliceBegins() {
   began_ = lastReading_ = clock_.now();
   stride_ = 0;
}

std::uint32_t TimeSlice::consult() {
   const auto now = clock_.now();
   if ( now - began_ >= duration_ ) { return 0; }
   if ( stride_ == 0 ) {
      stride_ = 1;
   } else {
      // The stride that would have taken a sixteenth of the slice at the pace of the last one.
      const std::int64_t took = std::max< std::int64_t >( 1, ( now - lastReading_ ).count() );
      const std::int64_t ideal = stride_ * ( duration_.count() / kReadingsPerSlice ) / took;
      const auto longest = std::min( 2 * stride_, kLongestStride );
      stride_ = static_cast< std::uint32_t >( std::clamp< std::int64_t >( ideal, 1, longest ) );
   }
   lastReading_ = now;
   return stride_;
}

std::chrono::nanoseconds TimeSlice::overstay() {
   const auto over = clock_.now() - began_ - duration_;
   return over > tolerance_ ? over : std::chrono::nanoseconds{ 0 };
}

void YieldsAfter::sliceBegins() { left_ = asks_; }

std::uint32_t YieldsAfter::consult() { return std::exchange( left_, 0 ); }

void AlwaysYield::sliceBegins() {}

std::uint32_t AlwaysYield::consult() { return 0; }

} // namespace Oru

#pragma once

#include <gtest/gtest.h>

#include "VeloSdkRpc/test/RunConformance.h"

namespace VeloSdkRpc::test {

/// A member of a fixture: a draining run unlike the naive one fails the test.
class RunsConform {
 public:
   ~RunsConform() { EXPECT_EQ( runs_.difference(), "" ); }

 private:
   RunConformance runs_;
};

} // namespace VeloSdkRpc::test

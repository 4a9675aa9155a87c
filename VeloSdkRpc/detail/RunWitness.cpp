#include "VeloSdkRpc/detail/RunWitness.h"

#include <utility>

namespace VeloSdkRpc::detail {
namespace {

RunWitness * installed = nullptr;

} // namespace

RunWitness * runWitness() { return installed; }
RunWitness * runWitnessIs( RunWitness * witness ) { return std::exchange( installed, witness ); }

} // namespace VeloSdkRpc::detail

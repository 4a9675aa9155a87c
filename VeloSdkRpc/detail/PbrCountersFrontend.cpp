#include "VeloSdkRpc/detail/PbrCountersFrontend.h"

namespace VeloSdkRpc {

PbrCountersFrontend::~PbrCountersFrontend() = default;

} // namespace VeloSdkRpc

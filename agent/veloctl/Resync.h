/// veloctl resync weights|overrides: what a file has, and nothing else.
///
/// The same commands stand as "resync" below "weights" and "overrides".

#pragma once

#include <string>

namespace VeloCtl {

class Commands;

void addResync( Commands & commands );

void addWeightsResync( Commands & parent, const std::string & name );
void addOverridesResync( Commands & parent, const std::string & name );

} // namespace VeloCtl

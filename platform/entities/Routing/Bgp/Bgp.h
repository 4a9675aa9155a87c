#pragma once

/// Routing::Bgp: configuration of BGP by SDK clients.
///
///    BgpLinkWeightSdkOverride  --bgpLinkWeightSdkOverrideEntry[ IntfId ]-->  weight

#include "Routing/Bgp/BgpLinkWeightSdkOverride.h"
#include "Routing/Bgp/BgpLinkWeightSdkOverrideEntry.h"

#pragma once

/// Ipnet: interface identifiers, IP addresses and prefixes. Small values that are valid as long as
/// they exist: what cannot be one is refused where it is made.

#include "Ipnet/IntfId.h"
#include "Ipnet/IpAddr.h"
#include "Ipnet/IpPrefix.h"

#pragma once

/// PolicyMap: the published counters of policy maps, a tree of three levels:
///
///    PolicyMapTypeCounters  --policyMapCounters[ PolicyMapKey ]-->  PolicyMapCounters
///    PolicyMapCounters      --classCounters[ class name ]-------->  CountersData
///    CountersData           --countData-->  packets and bytes

#include "PolicyMap/CountData.h"
#include "PolicyMap/CountersData.h"
#include "PolicyMap/PolicyMapCounters.h"
#include "PolicyMap/PolicyMapKey.h"
#include "PolicyMap/PolicyMapTypeCounters.h"

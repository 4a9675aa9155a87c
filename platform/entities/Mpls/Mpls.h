#pragma once

/// Mpls: what the hardware says about the MPLS routes that it was given:
///
///    Hardware::Status  --route[ RouteKey ]-->  Hardware::Route
///    Hardware::Route   --ackInfo----------->   Hardware::AckInfo, once it is acknowledged

#include "Mpls/AckInfo.h"
#include "Mpls/Route.h"
#include "Mpls/RouteKey.h"
#include "Mpls/Status.h"

/// A record to write as a line.

#pragma once

#include "agent/LineFormat.h"

namespace VeloAgent {

inline DeliveredRecord someRecord() {
   return { .shortKey = 7,
            .encodeLongKey = false,
            .deleteKey = false,
            .policy = "web",
            .className = "http",
            .aclRule = "",
            .longKeyIsNews = false,
            .counters = Counters{ 12, 1008 },
            .deleted = false };
}

} // namespace VeloAgent

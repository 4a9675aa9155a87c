#pragma once

/// Lumo: reference-counted nodes, shared strings, notifications, tracing and fatal assertions.

#include "Lumo/Assert.h"
#include "Lumo/Hash.h"
#include "Lumo/Node.h"
#include "Lumo/Ptr.h"
#include "Lumo/Publisher.h"
#include "Lumo/Relocatable.h"
#include "Lumo/String.h"
#include "Lumo/Thread.h"
#include "Lumo/Trace.h"

#pragma once

/// Quon: the entity runtime: entities and their errors, keyed collections, text forms, tracing by
/// streaming.

#include "Quon/Attribute.h"
#include "Quon/CharRange.h"
#include "Quon/DenseMap2018.h"
#include "Quon/Dir.h"
#include "Quon/Entity.h"
#include "Quon/EntityTypes.h"
#include "Quon/Exceptions.h"
#include "Quon/Hash.h"
#include "Quon/HashMap2018.h"
#include "Quon/HashState.h"
#include "Quon/KeyTraits.h"
#include "Quon/NotifyValues.h"
#include "Quon/Optional.h"
#include "Quon/ParseError.h"
#include "Quon/PublishedCollection.h"
#include "Quon/StringAttribute.h"
#include "Quon/Text.h"
#include "Quon/TraceHandle.h"
#include "Quon/TraceHelper.h"

// The lowest EventRecordID a selection can match, read from its conditions on
// System/EventRecordID (for example "EventRecordID > 41" gives 42), so that the reader skips
// every chunk whose records all lie below it. 0 means no bound.
#pragma once

#include "Expr.h"

#include <cstdint>

namespace evtx::query
{
std::uint64_t MinRecordIdOf(const Expr& selection);
} // namespace evtx::query

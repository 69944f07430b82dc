// Evaluates a parsed event XPath against one event, as XPath 1.0 does for the subset the Windows
// Event Log accepts: a path compared with a value is true when any node it selects compares true;
// numbers are exact 64-bit integers where possible; band() is a bitwise test; timediff() is the
// age of a SystemTime in milliseconds.
#pragma once

#include "Evtx/Query/EventView.h"
#include "Evtx/Query/Query.h"
#include "Expr.h"

namespace evtx::query
{
// True when the selection (a path from the virtual document root) selects the event.
bool SelectsEvent(const Expr& selection, const EventView& event, const EvalContext& context);
} // namespace evtx::query

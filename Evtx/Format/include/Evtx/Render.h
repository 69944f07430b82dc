// Renders a decoded EventTree to Windows' event XML. The output is byte-identical to
// Chunk::RenderXml for the same record (which is faster, as it splices values into
// pre-rendered template text without building a tree).
#pragma once

#include "Evtx/Chunk.h"
#include "Evtx/Event.h"

#include <string>

namespace evtx
{
void RenderTree(const EventTree& tree, std::string& out, const RenderOptions& options = {});
} // namespace evtx

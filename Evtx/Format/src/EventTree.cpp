// EventTree: building, navigation, text and the usual System values.
#include "Evtx/Event.h"
#include "Evtx/ValueText.h"

namespace evtx
{
std::uint32_t EventTree::Add(const Node& node, std::uint32_t parent)
{
  const auto index = static_cast<std::uint32_t>(nodes_.size());
  nodes_.push_back(node);
  Node& added = nodes_.back();
  added.parent = parent;
  added.firstChild = added.lastChild = added.nextSibling = added.firstAttribute = kNoNode;
  if (parent != kNoNode)
  {
    Node& p = nodes_[parent];
    if (p.lastChild == kNoNode)
      p.firstChild = index;
    else
      nodes_[p.lastChild].nextSibling = index;
    p.lastChild = index;
  }
  return index;
}

std::uint32_t EventTree::AddAttribute(const Node& node, std::uint32_t element)
{
  const auto index = static_cast<std::uint32_t>(nodes_.size());
  nodes_.push_back(node);
  Node& added = nodes_.back();
  added.parent = element;
  added.firstChild = added.lastChild = added.nextSibling = added.firstAttribute = kNoNode;
  std::uint32_t* link = &nodes_[element].firstAttribute;
  while (*link != kNoNode)
    link = &nodes_[*link].nextSibling;
  *link = index;
  return index;
}

std::uint32_t EventTree::Root() const noexcept
{
  for (std::uint32_t i = 0; i < nodes_.size(); ++i)
    if (nodes_[i].parent == kNoNode && nodes_[i].kind == NodeKind::Element)
      return i;
  return kNoNode;
}

std::uint32_t EventTree::FirstChild(std::uint32_t node) const noexcept
{
  return node < nodes_.size() ? nodes_[node].firstChild : kNoNode;
}

std::uint32_t EventTree::Child(std::uint32_t element, std::string_view name) const noexcept
{
  if (element >= nodes_.size())
    return kNoNode;
  for (std::uint32_t c = nodes_[element].firstChild; c != kNoNode; c = nodes_[c].nextSibling)
  {
    const Node& n = nodes_[c];
    if (n.kind == NodeKind::Element && n.name == name)
      return c;
    // Elements of a nested fragment hang under its BinXml value node.
    if (n.kind == NodeKind::Value && n.firstChild != kNoNode)
    {
      const std::uint32_t inner = Child(c, name);
      if (inner != kNoNode)
        return inner;
    }
  }
  return kNoNode;
}

std::uint32_t EventTree::Attribute(std::uint32_t element, std::string_view name) const noexcept
{
  if (element >= nodes_.size())
    return kNoNode;
  for (std::uint32_t a = nodes_[element].firstAttribute; a != kNoNode; a = nodes_[a].nextSibling)
    if (nodes_[a].name == name)
      return a;
  return kNoNode;
}

Value EventTree::TextValue(std::uint32_t node) const noexcept
{
  if (node >= nodes_.size())
    return {};
  const std::uint32_t first = nodes_[node].firstChild;
  if (first == kNoNode || nodes_[first].nextSibling != kNoNode ||
      nodes_[first].kind != NodeKind::Value || nodes_[first].firstChild != kNoNode)
    return {};
  return nodes_[first].value;
}

void EventTree::AppendText(std::uint32_t node, std::string& out) const
{
  if (node >= nodes_.size())
    return;
  for (std::uint32_t c = nodes_[node].firstChild; c != kNoNode; c = nodes_[c].nextSibling)
  {
    const Node& n = nodes_[c];
    switch (n.kind)
    {
    case NodeKind::Value:
      if (n.firstChild != kNoNode)
        AppendText(c, out);
      else
        AppendValueText(out, n.value);
      break;
    case NodeKind::CData: AppendValueText(out, n.value); break;
    case NodeKind::Element: AppendText(c, out); break;
    case NodeKind::CharRef:
    {
      const std::uint16_t units[1] = {n.charRef};
      std::uint8_t bytes[2] = {static_cast<std::uint8_t>(units[0] & 0xff),
                               static_cast<std::uint8_t>(units[0] >> 8)};
      AppendUtf16(out, bytes, 1);
      break;
    }
    case NodeKind::EntityRef:
      if (n.name == "amp") out += '&';
      else if (n.name == "lt") out += '<';
      else if (n.name == "gt") out += '>';
      else if (n.name == "quot") out += '"';
      else if (n.name == "apos") out += '\'';
      else
      {
        out += '&';
        out.append(n.name);
        out += ';';
      }
      break;
    default: break;
    }
  }
}

std::string EventTree::Text(std::uint32_t node) const
{
  std::string out;
  AppendText(node, out);
  return out;
}

std::uint32_t EventTree::System() const noexcept
{
  return Child(Root(), "System");
}

std::uint32_t EventTree::EventData() const noexcept
{
  return Child(Root(), "EventData");
}

std::uint32_t EventTree::UserData() const noexcept
{
  return Child(Root(), "UserData");
}

namespace
{
template <class T>
void Number(const EventTree& tree, std::uint32_t node, std::optional<T>& out)
{
  std::uint64_t v = 0;
  if (node != kNoNode && ValueToUInt64(tree.TextValue(node), v))
    out = static_cast<T>(v);
}
} // namespace

void EventTree::System(SystemValues& out) const
{
  out = SystemValues{};
  const std::uint32_t system = System();
  if (system == kNoNode)
    return;
  for (std::uint32_t c = nodes_[system].firstChild; c != kNoNode; c = nodes_[c].nextSibling)
  {
    const Node& n = nodes_[c];
    if (n.kind != NodeKind::Element)
      continue;
    const std::string_view name = n.name;
    if (name == "Provider")
    {
      out.providerName = TextValue(Attribute(c, "Name"));
      out.providerGuid = TextValue(Attribute(c, "Guid"));
      out.eventSourceName = TextValue(Attribute(c, "EventSourceName"));
    }
    else if (name == "EventID")
    {
      Number(*this, c, out.eventId);
      Number(*this, Attribute(c, "Qualifiers"), out.qualifiers);
    }
    else if (name == "Version")
      Number(*this, c, out.version);
    else if (name == "Level")
      Number(*this, c, out.level);
    else if (name == "Task")
      Number(*this, c, out.task);
    else if (name == "Opcode")
      Number(*this, c, out.opcode);
    else if (name == "Keywords")
      Number(*this, c, out.keywords);
    else if (name == "TimeCreated")
    {
      std::uint64_t ft = 0;
      if (ValueToFileTime(TextValue(Attribute(c, "SystemTime")), ft))
        out.timeCreated = ft;
    }
    else if (name == "EventRecordID")
      Number(*this, c, out.recordId);
    else if (name == "Correlation")
    {
      out.activityId = TextValue(Attribute(c, "ActivityID"));
      out.relatedActivityId = TextValue(Attribute(c, "RelatedActivityID"));
    }
    else if (name == "Execution")
    {
      Number(*this, Attribute(c, "ProcessID"), out.processId);
      Number(*this, Attribute(c, "ThreadID"), out.threadId);
    }
    else if (name == "Channel")
      out.channel = TextValue(c);
    else if (name == "Computer")
      out.computer = TextValue(c);
    else if (name == "Security")
      out.userId = TextValue(Attribute(c, "UserID"));
  }
}
} // namespace evtx

#include "Evtx/Query/TreeEventView.h"

#include "Evtx/Query/Utf.h"

#include <string>

namespace evtx::query
{
namespace
{
// Node handles are the addresses of the tree's nodes.
EventView::Node ToHandle(const EventTree& tree, std::uint32_t index)
{
  return index == kNoNode ? nullptr : &tree[index];
}

std::uint32_t ToIndex(const EventTree& tree, EventView::Node node)
{
  return static_cast<std::uint32_t>(static_cast<const evtx::Node*>(node) - &tree[0]);
}

// A Value node with children holds a nested fragment: its elements count as the parent's children.
bool IsContainer(const evtx::Node& node) { return node.kind == NodeKind::Value && node.firstChild != kNoNode; }

// The first element at or after `index` among siblings, entering nested fragments.
std::uint32_t FirstElementFrom(const EventTree& tree, std::uint32_t index)
{
  for (; index != kNoNode; index = tree[index].nextSibling)
  {
    const evtx::Node& node = tree[index];
    if (node.kind == NodeKind::Element)
      return index;
    if (IsContainer(node))
    {
      const std::uint32_t inner = FirstElementFrom(tree, node.firstChild);
      if (inner != kNoNode)
        return inner;
    }
  }
  return kNoNode;
}

bool SameName(std::string_view utf8, std::wstring_view name)
{
  if (utf8.size() != name.size())
  {
    // Only non-ASCII names can differ in length between the two encodings.
    for (const char c : utf8)
      if (static_cast<unsigned char>(c) >= 0x80)
        return FromUtf8(utf8) == name;
    return false;
  }
  for (std::size_t i = 0; i < utf8.size(); ++i)
  {
    const auto c = static_cast<unsigned char>(utf8[i]);
    if (c >= 0x80)
      return FromUtf8(utf8) == name;
    if (name[i] != static_cast<wchar_t>(c))
      return false;
  }
  return true;
}
} // namespace

EventView::Node TreeEventView::Root() const { return ToHandle(m_tree, m_tree.Empty() ? kNoNode : m_tree.Root()); }

EventView::Node TreeEventView::FirstChild(Node parent) const
{
  return ToHandle(m_tree, FirstElementFrom(m_tree, m_tree[ToIndex(m_tree, parent)].firstChild));
}

EventView::Node TreeEventView::NextSibling(Node node) const
{
  std::uint32_t index = ToIndex(m_tree, node);
  for (;;)
  {
    const std::uint32_t next = FirstElementFrom(m_tree, m_tree[index].nextSibling);
    if (next != kNoNode)
      return ToHandle(m_tree, next);
    // Past the end of a nested fragment: go on after the value that held it.
    const std::uint32_t parent = m_tree[index].parent;
    if (parent == kNoNode || !IsContainer(m_tree[parent]))
      return nullptr;
    index = parent;
  }
}

bool TreeEventView::NameIs(Node node, std::wstring_view name) const
{
  return SameName(m_tree[ToIndex(m_tree, node)].name, name);
}

bool TreeEventView::Attribute(Node node, std::wstring_view name, std::wstring& value) const
{
  const std::string utf8 = ToUtf8(name);
  const std::uint32_t attribute = m_tree.Attribute(ToIndex(m_tree, node), utf8);
  if (attribute == kNoNode)
    return false;
  value = FromUtf8(m_tree.Text(attribute));
  return true;
}

void TreeEventView::Text(Node node, std::wstring& value) const { value = FromUtf8(m_tree.Text(ToIndex(m_tree, node))); }
} // namespace evtx::query

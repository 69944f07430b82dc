// An EventView over the reader's decoded record (evtx::EventTree): queries are evaluated on the
// typed values without rendering any XML. Elements of nested binary XML (a BinXml substitution,
// as UserData often holds) appear as ordinary children.
//
//   evtx::EventTree tree; chunk->Decode(record, tree);
//   evtx::query::TreeEventView view(tree);
//   if (query.Matches(channel, view, context)) ...
#pragma once

#include "Evtx/Event.h"
#include "Evtx/Query/EventView.h"

namespace evtx::query
{
class TreeEventView final : public EventView
{
public:
  explicit TreeEventView(const EventTree& tree) : m_tree(tree) {}

  Node Root() const override;
  Node FirstChild(Node parent) const override;
  Node NextSibling(Node node) const override;
  bool NameIs(Node node, std::wstring_view name) const override;
  bool Attribute(Node node, std::wstring_view name, std::wstring& value) const override;
  void Text(Node node, std::wstring& value) const override;

private:
  const EventTree& m_tree;
};
} // namespace evtx::query

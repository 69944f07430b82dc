// What a query reads from one event: its element tree, navigated by name, with attribute and
// text values. The .evtx reader implements it over a decoded record so that filtering needs no
// XML text; XmlEventView implements it over an XML document (tests, rendered events).
#pragma once

#include <string>
#include <string_view>

namespace evtx::query
{
class EventView
{
public:
  // An element of the event; null means none.
  using Node = const void*;

  virtual ~EventView() = default;
  // The top element (Event).
  virtual Node Root() const = 0;
  // First child element of parent, and the element after node among its siblings.
  virtual Node FirstChild(Node parent) const = 0;
  virtual Node NextSibling(Node node) const = 0;
  virtual bool NameIs(Node node, std::wstring_view name) const = 0;
  // False when the element has no such attribute.
  virtual bool Attribute(Node node, std::wstring_view name, std::wstring& value) const = 0;
  // The element's text content (empty for an element without text).
  virtual void Text(Node node, std::wstring& value) const = 0;
};
} // namespace evtx::query

// An EventView over the XML text of one event (as EvtRender produces it). Used by tests and by
// callers that only have rendered XML; the reader's own view avoids producing the text.
#pragma once

#include "Evtx/Query/EventView.h"

#include <memory>
#include <string_view>

namespace evtx::query
{
class XmlEventView final : public EventView
{
public:
  // Throws std::invalid_argument when the text is not well-formed XML.
  explicit XmlEventView(std::wstring_view xml);
  ~XmlEventView() override;
  XmlEventView(const XmlEventView&) = delete;
  XmlEventView& operator=(const XmlEventView&) = delete;

  Node Root() const override;
  Node FirstChild(Node parent) const override;
  Node NextSibling(Node node) const override;
  bool NameIs(Node node, std::wstring_view name) const override;
  bool Attribute(Node node, std::wstring_view name, std::wstring& value) const override;
  void Text(Node node, std::wstring& value) const override;

private:
  struct Document;
  std::unique_ptr<Document> m_document;
};
} // namespace evtx::query

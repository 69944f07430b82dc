#include "Evtx/Query/XmlEventView.h"

#include "Evtx/Query/Utf.h"

#include <pugixml.hpp>

#include <stdexcept>

namespace evtx::query
{
struct XmlEventView::Document
{
  pugi::xml_document xml;
};

namespace
{
pugi::xml_node ToXml(EventView::Node node)
{
  return pugi::xml_node(static_cast<pugi::xml_node_struct*>(const_cast<void*>(node)));
}

EventView::Node FromXml(pugi::xml_node node) { return node ? node.internal_object() : nullptr; }

pugi::xml_node SkipToElement(pugi::xml_node node)
{
  while (node && node.type() != pugi::node_element)
    node = node.next_sibling();
  return node;
}

// Compares a UTF-8 name with a wide one without allocating for plain ASCII names.
bool SameName(const char* utf8, std::wstring_view name)
{
  std::size_t i = 0;
  for (; utf8[i] != '\0'; ++i)
  {
    const auto c = static_cast<unsigned char>(utf8[i]);
    if (c >= 0x80)
      return FromUtf8(utf8) == name;
    if (i >= name.size() || name[i] != static_cast<wchar_t>(c))
      return false;
  }
  return i == name.size();
}
} // namespace

XmlEventView::XmlEventView(std::wstring_view xml) : m_document(std::make_unique<Document>())
{
  const std::string utf8 = ToUtf8(xml);
  if (!m_document->xml.load_buffer(utf8.data(), utf8.size(), pugi::parse_default))
    throw std::invalid_argument("event XML is not well-formed");
}

XmlEventView::~XmlEventView() = default;

EventView::Node XmlEventView::Root() const { return FromXml(m_document->xml.document_element()); }

EventView::Node XmlEventView::FirstChild(Node parent) const
{
  return FromXml(SkipToElement(ToXml(parent).first_child()));
}

EventView::Node XmlEventView::NextSibling(Node node) const
{
  return FromXml(SkipToElement(ToXml(node).next_sibling()));
}

bool XmlEventView::NameIs(Node node, std::wstring_view name) const { return SameName(ToXml(node).name(), name); }

bool XmlEventView::Attribute(Node node, std::wstring_view name, std::wstring& value) const
{
  for (const pugi::xml_attribute& attribute : ToXml(node).attributes())
    if (SameName(attribute.name(), name))
    {
      value = FromUtf8(attribute.value());
      return true;
    }
  return false;
}

void XmlEventView::Text(Node node, std::wstring& value) const
{
  std::string text;
  for (const pugi::xml_node& child : ToXml(node).children())
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
      text += child.value();
  value = FromUtf8(text);
}
} // namespace evtx::query

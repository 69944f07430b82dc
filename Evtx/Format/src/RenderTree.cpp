// Renders an EventTree with the same rules as the compiled-template renderer.
#include "Evtx/Render.h"
#include "Evtx/ValueText.h"

namespace evtx
{
namespace
{
// CDATA and PI data are not escaped; one-line output still turns their line breaks into refs.
void AppendRaw(std::string& out, const Value& v, TextEscape escape)
{
  std::string raw;
  AppendUtf16(raw, v.data, v.size / 2, TextEscape::None);
  for (const char c : raw)
  {
    if (escape == TextEscape::XmlOneLine && c == '\r')
      out += "&#13;";
    else if (escape == TextEscape::XmlOneLine && c == '\n')
      out += "&#10;";
    else
      out += c;
  }
}

void RenderContent(const EventTree& tree, std::uint32_t first, std::string& out, TextEscape escape);

void RenderNode(const EventTree& tree, std::uint32_t index, std::string& out, TextEscape escape)
{
  const Node& n = tree[index];
  switch (n.kind)
  {
  case NodeKind::Element:
  {
    out += '<';
    out.append(n.name);
    for (std::uint32_t a = n.firstAttribute; a != kNoNode; a = tree[a].nextSibling)
    {
      out += ' ';
      out.append(tree[a].name);
      out += "='";
      RenderContent(tree, tree[a].firstChild, out, escape);
      out += '\'';
    }
    out += '>';
    const std::size_t start = out.size();
    RenderContent(tree, n.firstChild, out, escape);
    if (out.size() == start)
    {
      out.back() = '/';
      out += '>';
    }
    else
    {
      out += "</";
      out.append(n.name);
      out += '>';
    }
    break;
  }
  case NodeKind::Value:
    if (n.value.BaseType() == ValueType::BinXml && !n.value.IsArray())
      RenderContent(tree, n.firstChild, out, escape);
    else
      AppendValueText(out, n.value, escape);
    break;
  case NodeKind::CData:
    out += "<![CDATA[";
    AppendRaw(out, n.value, escape);
    out += "]]>";
    break;
  case NodeKind::CharRef:
    out += "&#";
    out += std::to_string(n.charRef);
    out += ';';
    break;
  case NodeKind::EntityRef:
    out += '&';
    out.append(n.name);
    out += ';';
    break;
  case NodeKind::PI:
    out += "<?";
    out.append(n.name);
    if (n.value.size > 0)
    {
      out += ' ';
      AppendRaw(out, n.value, escape);
    }
    out += "?>";
    break;
  case NodeKind::Attribute: break;
  }
}

void RenderContent(const EventTree& tree, std::uint32_t first, std::string& out, TextEscape escape)
{
  for (std::uint32_t c = first; c != kNoNode; c = tree[c].nextSibling)
    RenderNode(tree, c, out, escape);
}
} // namespace

void RenderTree(const EventTree& tree, std::string& out, const RenderOptions& options)
{
  const TextEscape escape = options.escapeLineBreaks ? TextEscape::XmlOneLine : TextEscape::Xml;
  const std::size_t start = out.size();
  for (std::uint32_t i = 0; i < tree.Size(); ++i)
    if (tree[i].parent == kNoNode)
      RenderNode(tree, i, out, escape);
  // Names, CDATA and PI text are written as they are: their controls are rewritten here.
  if (escape == TextEscape::XmlOneLine)
    ReplaceForbiddenControls(out, start);
}
} // namespace evtx

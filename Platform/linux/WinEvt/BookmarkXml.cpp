#include "BookmarkXml.h"

#include <pugixml.hpp>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <cwctype>

namespace natc::winevt
{
namespace
{
void AppendEscaped(std::wstring& out, std::wstring_view text)
{
  for (const wchar_t c : text)
  {
    switch (c)
    {
    case L'&': out += L"&amp;"; break;
    case L'<': out += L"&lt;"; break;
    case L'>': out += L"&gt;"; break;
    case L'\'': out += L"&apos;"; break;
    case L'"': out += L"&quot;"; break;
    default: out += c;
    }
  }
}

// xs:long as the schema types RecordId; record numbers are never negative.
bool ParseRecordId(const char* text, std::uint64_t& out)
{
  const char* end = text + std::strlen(text);
  const auto [at, error] = std::from_chars(text, end, out);
  return error == std::errc() && at == end && at != text && out <= static_cast<std::uint64_t>(INT64_MAX);
}

// xs:boolean; MS-EVEN6's own example writes "True", so case is ignored.
bool ParseBoolean(const char* text, bool& out)
{
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  if (lower == "true" || lower == "1")
    out = true;
  else if (lower == "false" || lower == "0")
    out = false;
  else
    return false;
  return true;
}
} // namespace

bool SameChannel(std::wstring_view a, std::wstring_view b) noexcept
{
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
           return std::towupper(static_cast<std::wint_t>(x)) == std::towupper(static_cast<std::wint_t>(y));
         });
}

void BookmarkList::Update(std::wstring_view channel, std::uint64_t recordId)
{
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [&](const BookmarkEntry& entry) { return SameChannel(entry.channel, channel); });
  if (found != entries.end())
  {
    found->recordId = recordId;
    current = static_cast<std::size_t>(found - entries.begin());
    return;
  }
  entries.push_back({std::wstring(channel), recordId});
  current = entries.size() - 1;
}

const BookmarkEntry* BookmarkList::Current() const noexcept
{
  if (current < entries.size())
    return &entries[current];
  return entries.empty() ? nullptr : &entries.back();
}

std::wstring FormatBookmarkXml(const BookmarkList& list)
{
  std::wstring xml = L"<BookmarkList>\r\n";
  for (std::size_t i = 0; i < list.entries.size(); ++i)
  {
    xml += L"  <Bookmark Channel='";
    AppendEscaped(xml, list.entries[i].channel);
    xml += L"' RecordId='";
    xml += std::to_wstring(list.entries[i].recordId);
    xml += i == list.current ? L"' IsCurrent='true'/>\r\n" : L"'/>\r\n";
  }
  xml += L"</BookmarkList>";
  return xml;
}

bool ParseBookmarkXml(std::wstring_view xml, BookmarkList& out)
{
  pugi::xml_document document;
  if (!document.load_buffer(xml.data(), xml.size() * sizeof(wchar_t), pugi::parse_default, pugi::encoding_wchar))
    return false;
  const pugi::xml_node root = document.document_element();
  if (std::strcmp(root.name(), "BookmarkList") != 0)
    return false;
  // One root element, and nothing but markup around it.
  for (const pugi::xml_node top : document.children())
    if (top != root && (top.type() == pugi::node_element || top.type() == pugi::node_pcdata))
      return false;
  BookmarkList parsed;
  for (const pugi::xml_node entry : root.children())
  {
    if (entry.type() == pugi::node_pcdata || entry.type() == pugi::node_cdata)
      return false;
    if (entry.type() != pugi::node_element)
      continue;
    const pugi::xml_attribute channel = entry.attribute("Channel");
    const pugi::xml_attribute recordId = entry.attribute("RecordId");
    std::uint64_t number = 0;
    if (std::strcmp(entry.name(), "Bookmark") != 0 || !channel || *channel.value() == '\0' || !recordId ||
        !ParseRecordId(recordId.value(), number))
      return false;
    bool isCurrent = false;
    if (const pugi::xml_attribute flag = entry.attribute("IsCurrent"); flag && !ParseBoolean(flag.value(), isCurrent))
      return false;
    const std::wstring name = pugi::as_wide(channel.value());
    const std::size_t current = parsed.current;
    parsed.Update(name, number);
    // Only an entry marked current is the current one; a later unmarked entry is not.
    if (!isCurrent)
      parsed.current = current;
  }
  out = std::move(parsed);
  return true;
}
} // namespace natc::winevt

// The text form of an Event Log bookmark, with no Event Log call: the list of (channel, record
// number) entries that EvtRender(EvtRenderBookmark) writes and EvtCreateBookmark reads back.
//   BookmarkList list; list.Update(L"System", 42);
//   std::wstring xml = FormatBookmarkXml(list);   // as Windows renders it
//   ParseBookmarkXml(xml, list);                   // false when the text is no bookmark list
// Windows writes "<BookmarkList>\r\n  <Bookmark Channel='X' RecordId='N' IsCurrent='true'/>\r\n
// </BookmarkList>" (one line per channel; a rendered example is quoted in
// https://github.com/fluent/fluent-plugin-windows-eventlog/issues/61); the schema, which also
// allows double quotes and "IsCurrent" on any entry, is MS-EVEN6 2.2.14:
// https://learn.microsoft.com/en-us/openspecs/windows_protocols/ms-even6/726c3b3b-eaa6-48f2-a592-519459a4eeb1
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace natc::winevt
{
struct BookmarkEntry
{
  std::wstring channel;
  std::uint64_t recordId = 0;
};

// One entry per channel (case ignored, as channel names are); `current` is the entry last moved.
struct BookmarkList
{
  static constexpr std::size_t none = static_cast<std::size_t>(-1);
  std::vector<BookmarkEntry> entries;
  std::size_t current = none;

  // Sets the channel's entry (added when new) and makes it the current one.
  void Update(std::wstring_view channel, std::uint64_t recordId);
  // The current entry, else the last one; null when the list is empty.
  const BookmarkEntry* Current() const noexcept;
};

std::wstring FormatBookmarkXml(const BookmarkList& list);
// False when the text is not well-formed XML of the bookmark schema (out is then unchanged).
bool ParseBookmarkXml(std::wstring_view xml, BookmarkList& out);
// Channel names compare as Windows compares them: without regard to case.
bool SameChannel(std::wstring_view a, std::wstring_view b) noexcept;
} // namespace natc::winevt

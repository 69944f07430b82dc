#include "EventQuery.h"

#include "KeldaKernel/Exceptions.h"

#include <fmt/xchar.h>

#include <algorithm>
#include <cwctype>
#include <iterator>
#include <type_traits>

namespace collector::ni::impl
{
namespace
{
// towupper of the character; ASCII, all of most channel paths, without the library call (the
// process keeps the C locale, where towupper maps ASCII just so).
std::wint_t Upper(wchar_t c) noexcept
{
  // NOLINTNEXTLINE(bugprone-signed-char-misuse): a wide character, whose code is taken as unsigned
  const std::make_unsigned_t<wchar_t> code = c;
  if (code < 0x80)
    return code >= 'a' && code <= 'z' ? code - ('a' - 'A') : code;
  return std::towupper(static_cast<std::wint_t>(code));
}
} // namespace

bool SChannelPathLess::operator()(std::wstring_view a, std::wstring_view b) const noexcept
{
  // The same text, the common case of a bookmark lookup, is decided by one comparison.
  if (a == b)
    return false;
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [](wchar_t x, wchar_t y) { return Upper(x) < Upper(y); });
}

bool SameChannelPath(std::wstring_view a, std::wstring_view b) noexcept
{
  // One pass, and none for names of other lengths: asked once per event.
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
           return std::towupper(static_cast<std::wint_t>(x)) == std::towupper(static_cast<std::wint_t>(y));
         });
}

bool HoldsForwardedEvents(std::wstring_view path, std::wstring_view renderedChannel) noexcept
{
  static constexpr std::wstring_view fileScheme = L"file://";
  if (path.substr(0, fileScheme.size()) == fileScheme)
    return false;
  return SameChannelPath(path, L"ForwardedEvents") || !SameChannelPath(path, renderedChannel);
}

namespace
{
// Opens the System condition on its first clause and chains every later clause with "and".
void AppendClauseStart(tstring& condition)
{
  condition += condition.empty() ? L"[System[(" : L" and (";
}

// After a channel's last delivered record; on its first read, within the look-back window.
void AppendRecordOrWindow(tstring& condition, const win_events::SFilter& filter, const EventBookmarks& bookmarks)
{
  const auto bookmark = bookmarks.find(filter.Path);
  if (bookmark != bookmarks.end())
  {
    AppendClauseStart(condition);
    fmt::format_to(std::back_inserter(condition), L"EventRecordID&gt;{})", bookmark->second);
  }
  else if (filter.TimeDiff >= 1)
  {
    AppendClauseStart(condition);
    fmt::format_to(std::back_inserter(condition), L"TimeCreated[timediff(@SystemTime)&lt;={}])", filter.TimeDiff);
  }
}

// The condition of one filter: provider, event identifiers, then the bookmark or the
// look-back window (neither without bookmarks); empty when the filter selects everything.
tstring BuildCondition(const win_events::SFilter& filter, const EventBookmarks* bookmarks)
{
  tstring condition;
  if (!filter.Provider.empty())
  {
    // Inserted as given: provider names are not escaped.
    fmt::format_to(std::back_inserter(condition), L"[System[(Provider[@Name='{}'])", filter.Provider);
  }
  if (!filter.EventIds.empty())
  {
    AppendClauseStart(condition);
    bool first = true;
    for (std::uint32_t id : filter.EventIds)
    {
      if (!first)
      {
        condition += L" or ";
      }
      first = false;
      fmt::format_to(std::back_inserter(condition), L"EventID={}", id);
    }
    condition += L')';
  }
  // Without bookmarks EvtSeek places the query: the channel was read before.
  if (bookmarks != nullptr)
  {
    AppendRecordOrWindow(condition, filter, *bookmarks);
  }
  if (!condition.empty())
  {
    condition += L"]]";
  }
  return condition;
}
} // namespace

bool AreEventFiltersValid(const std::vector<win_events::SFilter>& filters) noexcept
{
  return !filters.empty() &&
         std::none_of(filters.begin(), filters.end(), [](const win_events::SFilter& f) { return f.Path.empty(); });
}

namespace
{
// The query list of the filters `take` accepts; empty when it accepts none.
template <class Take>
tstring BuildQueryList(const std::vector<win_events::SFilter>& filters, const EventBookmarks* bookmarks, Take take)
{
  tstring query = L"<QueryList>";
  std::size_t number = 0;
  for (const win_events::SFilter& filter : filters)
  {
    if (!take(filter))
      continue;
    // The path goes in unchanged: the caller gives a valid channel name.
    fmt::format_to(std::back_inserter(query), L"<Query Id=\"{}\"><Select Path=\"{}\">*", number, filter.Path);
    query += BuildCondition(filter, bookmarks);
    query += L"</Select></Query>";
    ++number;
  }
  if (number == 0)
  {
    return {};
  }
  query += L"</QueryList>";
  return query;
}
} // namespace

tstring BuildEventQuery(const std::vector<win_events::SFilter>& filters, const EventBookmarks& bookmarks,
                        const EventChannelSet& byPosition)
{
  return BuildQueryList(filters, &bookmarks, [&](const win_events::SFilter& filter) {
    return byPosition.empty() || byPosition.find(filter.Path) == byPosition.end();
  });
}

tstring BuildPositionQuery(const std::vector<win_events::SFilter>& filters, std::wstring_view path)
{
  return BuildQueryList(filters, nullptr,
                        [&](const win_events::SFilter& filter) { return SameChannelPath(filter.Path, path); });
}
} // namespace collector::ni::impl

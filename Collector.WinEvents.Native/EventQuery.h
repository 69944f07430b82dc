// The event log query of a "WindowsEvents" collection: the check of the caller's filters and
// the structured XML query list built from them and from the last record number delivered per
// channel. Pure: no Event Log API call here; the collection hands the text to EvtQuery.
//   if (!AreEventFiltersValid(filters)) ...            // at SetFilter, which throws E_INVALIDARG
//   tstring query = BuildEventQuery(filters, bookmarks); // at every update
#pragma once

#include "Collector/Interfaces/WinEventsInit.h"
#include "KeldaKernel/Strings.h"
#include "Platform/Windows.h"

#include <map>
#include <set>
#include <string_view>
#include <vector>

namespace collector::ni::impl
{
// Orders channel paths without regard to case: Windows keeps channels as registry keys, whose
// names ignore case, so "system" and "System" are one log.
struct SChannelPathLess
{
  using is_transparent = void;
  bool operator()(std::wstring_view a, std::wstring_view b) const noexcept;
};

bool SameChannelPath(std::wstring_view a, std::wstring_view b) noexcept;

// True for a channel whose events carry the EventRecordIDs of other hosts or logs, which must be
// read by position: the log Windows Event Forwarding fills by default ("ForwardedEvents"), or a
// channel one of whose events names another channel. Never for a file ("file://"): Windows
// makes no bookmark for a log file.
bool HoldsForwardedEvents(std::wstring_view path, std::wstring_view renderedChannel) noexcept;

// Last EventRecordID delivered, per path the events were read from (case ignored).
using EventBookmarks = std::map<tstring, __int64, SChannelPathLess>;

// Channels read by position (case ignored): EvtSeek places their queries, which carry neither
// a record number nor a look-back window.
using EventChannelSet = std::set<tstring, SChannelPathLess>;

// True when the list is not empty and every filter names a channel.
bool AreEventFiltersValid(const std::vector<win_events::SFilter>& filters) noexcept;

// The "<QueryList>...</QueryList>" text, one query per filter numbered from 0, leaving out the
// filters of channels read by position; an empty text when no filter is left (nothing to query).
tstring BuildEventQuery(const std::vector<win_events::SFilter>& filters, const EventBookmarks& bookmarks,
                        const EventChannelSet& byPosition = {});
// The query list of one channel read by position: its filters' providers and event identifiers.
tstring BuildPositionQuery(const std::vector<win_events::SFilter>& filters, std::wstring_view path);
} // namespace collector::ni::impl

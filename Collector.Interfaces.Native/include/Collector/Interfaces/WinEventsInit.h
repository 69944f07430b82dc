// Configuration of a "WindowsEvents" collection: the event log channels to read, each with an
// optional provider, look-back window and list of event identifiers.
// Usage: std::vector<SFilter> f{{L"System", L"", 3600000, {7036}}};
//        std::dynamic_pointer_cast<win_events::ICollectionInit>(collection)->SetFilter(f);
// A service that restarts keeps SaveBookmarks() of the old collection and hands them to the new
// one with RestoreBookmarks before Run, so that reading resumes after the last delivered event.
#pragma once

#include "KeldaKernel/Strings.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace collector::ni::win_events
{
struct SFilter
{
  // Channel path, e.g. a log name; must not be empty.
  tstring Path;
  // Event provider name; empty means any provider.
  tstring Provider;
  // Look-back window in milliseconds for the first read of the channel; <= 0 means no limit.
  std::int64_t TimeDiff = 0;
  // Event identifiers to accept; empty means all.
  std::vector<std::uint32_t> EventIds;
};

// Where reading a channel resumes: the last EventRecordID delivered from that path, and for a
// channel of forwarded events, read by position, the Windows bookmark of its last event.
struct SBookmark
{
  SBookmark() = default;
  SBookmark(tstring path, std::int64_t recordId, tstring bookmarkXml = {})
    : Path(std::move(path)), RecordId(recordId), BookmarkXml(std::move(bookmarkXml))
  {
  }

  // The channel or file path the events were read from (case ignored).
  tstring Path;
  std::int64_t RecordId = 0;
  // EvtRender(EvtRenderBookmark) text; empty for a channel read by record number.
  tstring BookmarkXml;
};

class ICollectionInit
{
public:
  virtual ~ICollectionInit() = default;
  // Validates (non-empty list, every Path non-empty; E_INVALIDARG otherwise) and stores a copy.
  virtual void SetFilter(std::vector<SFilter>& filters) = 0;
  // A copy of the stored filters (empty until SetFilter succeeded).
  virtual std::vector<SFilter> GetFilter() const = 0;
  // The last record delivered per path, at this moment (safe during an update).
  virtual std::vector<SBookmark> SaveBookmarks() const = 0;
  // Replaces the bookmarks (before Run); E_INVALIDARG for an empty Path, a negative RecordId or
  // a BookmarkXml that EvtCreateBookmark refuses.
  virtual void RestoreBookmarks(const std::vector<SBookmark>& bookmarks) = 0;
};
} // namespace collector::ni::win_events

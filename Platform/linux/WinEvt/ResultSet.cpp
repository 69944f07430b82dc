#include "ResultSet.h"

#include "BookmarkXml.h"

#include "Evtx/Query/TreeEventView.h"

#include <algorithm>
#include <climits>

namespace natc::winevt
{
ChannelCursor::ChannelCursor(evtx::File file, std::size_t channel, bool reverse, std::uint64_t minRecordId,
                             std::wstring path)
  : m_file(std::move(file)), m_channel(channel), m_reverse(reverse), m_minRecordId(minRecordId),
    m_path(std::make_shared<const std::wstring>(std::move(path)))
{
}

void ChannelCursor::PlanChunks()
{
  m_planned = true;
  const std::uint32_t count = m_file.ChunkCount();
  m_plan.reserve(count);
  for (std::uint32_t slot = 0; slot < count; ++slot)
  {
    evtx::ChunkHeader header;
    const evtx::Status status = m_file.ReadChunkHeader(slot, header);
    if (status == evtx::Status::Ok)
    {
      m_plan.push_back({slot, header.firstRecordId, header.lastRecordId, true});
      continue;
    }
    if (status == evtx::Status::Empty)
      continue;
    // A damaged header: the chunk may still hold readable records; their numbers place it.
    std::shared_ptr<evtx::Chunk> chunk;
    if (Load(slot, chunk) == evtx::Status::Ok && !chunk->Records().empty())
      m_plan.push_back({slot, chunk->Records().front().id, chunk->Records().back().id, false});
  }
  std::stable_sort(m_plan.begin(), m_plan.end(),
                   [](const PlannedChunk& a, const PlannedChunk& b) { return a.firstRecordId < b.firstRecordId; });
  if (!m_plan.empty())
    m_newestSlot = m_plan.back().slot;
  if (m_minRecordId > 1 && !m_plan.empty() && !HeaderNumbersMatchEvents(m_newestSlot))
    m_minRecordId = 0;
  if (m_reverse)
    std::reverse(m_plan.begin(), m_plan.end());
}

// Skipping by record headers is right only when they carry the numbers the events show. Windows
// writes them alike; exported or re-numbered files may not, and then every record is tested.
bool ChannelCursor::HeaderNumbersMatchEvents(std::uint32_t slot)
{
  std::shared_ptr<evtx::Chunk> chunk;
  if (Load(slot, chunk) != evtx::Status::Ok || chunk->Records().empty())
    return false;
  for (const evtx::Record* record : {&chunk->Records().front(), &chunk->Records().back()})
  {
    evtx::SystemValues values;
    if (chunk->Decode(*record, m_tree) != evtx::Status::Ok)
      return false;
    m_tree.System(values);
    if (values.recordId != record->id)
      return false;
  }
  return true;
}

evtx::Status ChannelCursor::Load(std::uint32_t slot, std::shared_ptr<evtx::Chunk>& chunk)
{
  const std::lock_guard guard(*m_fileLock);
  const evtx::Status status = m_file.LoadChunk(slot, chunk);
  return status == evtx::Status::Ok && !chunk ? evtx::Status::Empty : status;
}

ChannelCursor::Step ChannelCursor::LoadNextChunk()
{
  while (m_nextSlot < m_plan.size())
  {
    const PlannedChunk& planned = m_plan[m_nextSlot++];
    // Skip without loading a chunk whose records all lie below the bound. The newest chunk is
    // always read: it is the one being written, and its header may lag behind its records.
    if (planned.lastRecordId < std::max(m_minRecordId, m_seekFloor) && planned.slot != m_newestSlot)
      continue;
    std::shared_ptr<evtx::Chunk> chunk;
    const evtx::Status status = Load(planned.slot, chunk);
    // A slot gone from the file, or a chunk that now starts elsewhere in the log, means the log
    // was cleared or wrapped over it since the query began. Windows answers such a query with
    // ERROR_EVT_QUERY_RESULT_STALE: https://learn.microsoft.com/en-us/windows/win32/debug/system-error-codes--15000-15999-
    if (status == evtx::Status::Truncated || status == evtx::Status::Empty ||
        (status == evtx::Status::Ok && planned.fromHeader && chunk->HeaderChecksumOk() &&
         chunk->Header().firstRecordId != planned.firstRecordId))
      return Step::Stale;
    if (status != evtx::Status::Ok)
      continue; // a damaged chunk: reading goes on with the next
    ++m_chunksLoaded;
    m_chunk = std::make_shared<SharedChunk>(std::move(chunk), m_fileLock);
    m_nextRecord = 0;
    return Step::Event;
  }
  return Step::End;
}

bool ChannelCursor::Accept(const evtx::query::Query& query, const evtx::query::EvalContext& context,
                           const evtx::Record& record)
{
  if (record.id < m_minRecordId || record.id < m_seekFloor)
    return false;
  // Never the same record number twice, even from repeated chunks of a recovered file.
  if (m_delivered.Contains(record.id))
    return false;
  const evtx::Chunk& chunk = *m_chunk->chunk;
  // A chunk that failed a check may hold leftovers of an older or newer generation of the log
  // whose templates are gone: only records that decode become events, so every event renders.
  const bool suspect = !chunk.HeaderChecksumOk() || !chunk.RecordsChecksumOk() || chunk.RecordsTruncated();
  if (query.SelectsAll(m_channel) && !suspect)
    return true;
  const std::lock_guard guard(m_chunk->lock);
  if (m_chunk->chunk->Decode(record, m_tree) != evtx::Status::Ok)
    return false;
  if (query.SelectsAll(m_channel))
    return true;
  const evtx::query::TreeEventView view(m_tree);
  return query.Matches(m_channel, view, context);
}

void ChannelCursor::Rewind(std::uint64_t floor)
{
  m_chunk.reset();
  m_nextSlot = 0;
  m_nextRecord = 0;
  m_delivered = RecordIdSet();
  m_seekFloor = floor;
}

ChannelCursor::Step ChannelCursor::Next(const evtx::query::Query& query, const evtx::query::EvalContext& context,
                                        std::shared_ptr<EventObject>& out)
{
  if (!m_planned)
    PlanChunks();
  if (!m_chunk)
  {
    const Step loaded = LoadNextChunk();
    if (loaded != Step::Event)
      return loaded;
  }
  const auto& records = m_chunk->chunk->Records();
  while (m_nextRecord < records.size())
  {
    const evtx::Record& record = m_reverse ? records[records.size() - 1 - m_nextRecord] : records[m_nextRecord];
    ++m_nextRecord;
    if (Accept(query, context, record))
    {
      m_delivered.Insert(record.id);
      out = std::make_shared<EventObject>(m_chunk, record, m_path);
      return Step::Event;
    }
  }
  m_chunk.reset();
  return Step::ChunkDone;
}

ResultSetObject::ResultSetObject(evtx::query::Query query, std::vector<ChannelCursor> cursors,
                                 evtx::query::EvalContext context)
  : m_query(std::move(query)), m_cursors(std::move(cursors)), m_context(context)
{
}

std::size_t ResultSetObject::Next(std::size_t count, std::vector<std::shared_ptr<EventObject>>& out,
                                  const std::function<bool()>& deadlinePassed, Shortfall& shortfall)
{
  const std::lock_guard guard(m_lock);
  shortfall = m_stale ? Shortfall::Stale : Shortfall::None;
  std::size_t produced = 0;
  if (m_peeked && !m_stale && count > 0)
  {
    out.push_back(std::move(m_peeked));
    m_peeked.reset();
    ++produced;
  }
  while (!m_stale && produced < count && m_current < m_cursors.size())
  {
    std::shared_ptr<EventObject> event;
    switch (m_cursors[m_current].Next(m_query, m_context, event))
    {
    case ChannelCursor::Step::Event:
      out.push_back(std::move(event));
      ++produced;
      break;
    case ChannelCursor::Step::ChunkDone:
      if (deadlinePassed && deadlinePassed())
      {
        shortfall = Shortfall::TimedOut;
        return produced;
      }
      break;
    case ChannelCursor::Step::End: ++m_current; break;
    case ChannelCursor::Step::Stale:
      m_stale = true;
      shortfall = Shortfall::Stale;
      break;
    }
  }
  if (m_position >= 0)
    m_position += static_cast<std::int64_t>(produced);
  return produced;
}

bool ResultSetObject::Pull(std::shared_ptr<EventObject>& out, std::size_t& cursor)
{
  if (m_peeked)
  {
    out = std::move(m_peeked);
    m_peeked.reset();
    cursor = m_current;
    return true;
  }
  while (!m_stale && m_current < m_cursors.size())
  {
    switch (m_cursors[m_current].Next(m_query, m_context, out))
    {
    case ChannelCursor::Step::Event: cursor = m_current; return true;
    case ChannelCursor::Step::ChunkDone: break;
    case ChannelCursor::Step::End: ++m_current; break;
    case ChannelCursor::Step::Stale: m_stale = true; break;
    }
  }
  return false;
}

void ResultSetObject::RewindAll()
{
  for (ChannelCursor& cursor : m_cursors)
    cursor.Rewind();
  m_current = 0;
  m_peeked.reset();
  m_position = 0;
}

void ResultSetObject::Restore(std::int64_t before)
{
  if (before >= 0)
    GoTo(before, false, -1);
  else
    RewindAll();
}

std::uint32_t ResultSetObject::GoTo(std::int64_t target, bool strict, std::int64_t before)
{
  if (target < 0 && strict)
    return ERROR_NOT_FOUND;
  RewindAll();
  std::shared_ptr<EventObject> event;
  std::shared_ptr<EventObject> last;
  std::size_t cursor = 0;
  std::int64_t passed = 0;
  while (passed < target && Pull(event, cursor))
  {
    last = std::move(event);
    ++passed;
  }
  // The target must hold an event: stopping after the last one is past the end.
  if (passed >= target && Pull(event, cursor))
  {
    m_peeked = std::move(event);
    m_position = passed;
    return ERROR_SUCCESS;
  }
  if (m_stale)
    return ERROR_EVT_QUERY_RESULT_STALE;
  if (strict)
  {
    Restore(before);
    return ERROR_NOT_FOUND;
  }
  // Past the end: the seek stops on the last event of the result.
  m_peeked = std::move(last);
  m_position = m_peeked ? passed - 1 : 0;
  return ERROR_SUCCESS;
}

std::int64_t ResultSetObject::CurrentPosition()
{
  if (m_position >= 0)
    return m_position;
  std::shared_ptr<EventObject> next;
  std::size_t nextCursor = 0;
  const bool atEnd = !Pull(next, nextCursor);
  if (!atEnd)
    m_peeked = next;
  // Counted from the start up to the event EvtNext would hand out next.
  RewindAll();
  std::shared_ptr<EventObject> event;
  std::size_t cursor = 0;
  std::int64_t index = 0;
  while (Pull(event, cursor))
  {
    if (!atEnd && cursor == nextCursor && event->RecordId() == next->RecordId())
      break;
    ++index;
  }
  GoTo(index, false, -1);
  return index;
}

bool ResultSetObject::FindMark(std::size_t markCursor, std::uint64_t recordId, std::int64_t& index, bool& exact)
{
  RewindAll();
  index = 0;
  exact = false;
  std::shared_ptr<EventObject> event;
  std::size_t cursor = 0;
  while (Pull(event, cursor))
  {
    if (cursor > markCursor)
      return true;
    if (cursor == markCursor &&
        (m_cursors[cursor].Reverse() ? event->RecordId() <= recordId : event->RecordId() >= recordId))
    {
      exact = event->RecordId() == recordId;
      return true;
    }
    ++index;
  }
  return !m_stale;
}

std::uint32_t ResultSetObject::SeekFromMark(std::size_t markCursor, std::uint64_t recordId, std::int64_t offset,
                                            bool strict, std::int64_t before)
{
  // Forward from the mark: the marked channel's cursor starts at the marked number, passing
  // over what lies below it unread.
  RewindAll();
  m_current = markCursor;
  m_cursors[markCursor].Rewind(recordId);
  m_position = -1;
  std::shared_ptr<EventObject> first;
  std::size_t cursor = 0;
  const bool found = Pull(first, cursor);
  if (m_stale)
    return ERROR_EVT_QUERY_RESULT_STALE;
  const bool exact = found && cursor == markCursor && first->RecordId() == recordId;
  if (!exact && strict)
  {
    Restore(before);
    return ERROR_NOT_FOUND;
  }
  if (!found)
    return GoTo(INT64_MAX, false, before);
  // Offsets 0 and 1 both reach the first event after a mark that is not in the result.
  std::int64_t skip = exact ? offset : std::max<std::int64_t>(offset - 1, 0);
  // The cursor stands on `current`; past the last event it stays there unless strict.
  std::shared_ptr<EventObject> current = std::move(first);
  std::shared_ptr<EventObject> next;
  while (skip > 0 && Pull(next, cursor))
  {
    current = std::move(next);
    --skip;
  }
  if (m_stale)
    return ERROR_EVT_QUERY_RESULT_STALE;
  if (skip > 0 && strict)
  {
    Restore(before);
    return ERROR_NOT_FOUND;
  }
  m_peeked = std::move(current);
  return ERROR_SUCCESS;
}

std::uint32_t ResultSetObject::Seek(std::uint32_t origin, std::int64_t offset, const std::wstring* markChannel,
                                    std::uint64_t markRecordId, bool strict)
{
  const std::lock_guard guard(m_lock);
  if (m_stale)
    return ERROR_EVT_QUERY_RESULT_STALE;
  const std::int64_t before = m_position;
  switch (origin)
  {
  case EvtSeekRelativeToFirst: return GoTo(offset, strict, before);
  case EvtSeekRelativeToCurrent: return GoTo(CurrentPosition() + offset, strict, before);
  case EvtSeekRelativeToLast:
  {
    GoTo(INT64_MAX, false, before);
    const std::int64_t last = m_peeked ? m_position : -1;
    return GoTo(last + offset, strict, before);
  }
  case EvtSeekRelativeToBookmark:
  {
    const auto markCursor = std::find_if(m_cursors.begin(), m_cursors.end(), [&](const ChannelCursor& cursor) {
      return SameChannel(cursor.Path(), *markChannel);
    });
    // The bookmark names no channel of this query: there is no event to seek to.
    if (markCursor == m_cursors.end())
      return ERROR_NOT_FOUND;
    const auto index = static_cast<std::size_t>(markCursor - m_cursors.begin());
    if (!markCursor->Reverse() && offset >= 0)
      return SeekFromMark(index, markRecordId, offset, strict, before);
    std::int64_t at = 0;
    bool exact = false;
    if (!FindMark(index, markRecordId, at, exact))
      return ERROR_EVT_QUERY_RESULT_STALE;
    if (!exact && strict)
    {
      Restore(before);
      return ERROR_NOT_FOUND;
    }
    return GoTo(exact || offset <= 0 ? at + offset : at + offset - 1, strict, before);
  }
  default: return ERROR_INVALID_PARAMETER;
  }
}
} // namespace natc::winevt

#include "ResultSet.h"

#include "Evtx/Query/TreeEventView.h"

#include <algorithm>

namespace natc::winevt
{
ChannelCursor::ChannelCursor(evtx::File file, std::size_t channel, bool reverse, std::uint64_t minRecordId,
                             std::string logDirectory, std::wstring path)
  : m_file(std::move(file)), m_channel(channel), m_reverse(reverse), m_minRecordId(minRecordId),
    m_logDirectory(std::move(logDirectory)), m_path(std::make_shared<const std::wstring>(std::move(path)))
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
    if (planned.lastRecordId < m_minRecordId && planned.slot != m_newestSlot)
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
  if (record.id < m_minRecordId)
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
  return produced;
}
} // namespace natc::winevt

// The result of one EvtQuery: a cursor per channel file that walks its chunks in record order
// (or the reverse), skips every chunk whose records all lie below the query's EventRecordID bound
// without loading it, and tests the rest on their decoded values.
//
// Chunk order comes from the chunk headers' record ranges, not from the slots or the file header:
// logs wrap around, and real files carry stale file headers and damaged chunks. Reading the
// 512-byte headers costs a few microseconds per chunk; only chunks that may match are loaded.
//
// A live file is read as it was when the query opened it; appended events are seen by the next
// query. Within a query a record number is delivered at most once, until EvtSeek moves back.
//
// EvtSeek counts events in the order EvtNext gives them. A bookmark names a record by its number
// in the log, and the log's own numbers follow its reading order: seeking forward from a
// bookmark passes over, unread, every chunk whose records all lie below the bookmarked one.
#pragma once

#include "Objects.h"
#include "RecordIdSet.h"

#include "Evtx/Event.h"
#include "Evtx/File.h"
#include "Evtx/Query/Query.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace natc::winevt
{
class ChannelCursor
{
public:
  enum class Step
  {
    Event,     // out holds the next matching event
    ChunkDone, // a loaded chunk was finished: a good moment to check the time-out
    End,
    Stale // the log was cleared or wrapped over chunks the query had yet to read
  };

  // path: the channel or file path as the query names it, which its events report.
  ChannelCursor(evtx::File file, std::size_t channel, bool reverse, std::uint64_t minRecordId, std::wstring path);

  Step Next(const evtx::query::Query& query, const evtx::query::EvalContext& context,
            std::shared_ptr<EventObject>& out);

  // Chunks loaded so far (chunks skipped by their header's record range are not loaded).
  std::size_t ChunksLoaded() const { return m_chunksLoaded; }
  // Starts over from the first record; with a floor, from the first record numbered at least
  // that (forward reading only).
  void Rewind(std::uint64_t floor = 0);
  bool Reverse() const { return m_reverse; }
  const std::wstring& Path() const { return *m_path; }

private:
  void PlanChunks();
  bool HeaderNumbersMatchEvents(std::uint32_t slot);
  evtx::Status Load(std::uint32_t slot, std::shared_ptr<evtx::Chunk>& chunk);
  Step LoadNextChunk();
  bool Accept(const evtx::query::Query& query, const evtx::query::EvalContext& context, const evtx::Record& record);

  evtx::File m_file;
  // Held by every load from m_file and by the release of a chunk that events shared (see SharedChunk).
  std::shared_ptr<std::mutex> m_fileLock = std::make_shared<std::mutex>();
  std::size_t m_channel;
  bool m_reverse;
  std::uint64_t m_minRecordId;
  // Set by a seek from a bookmark: records below it are not read.
  std::uint64_t m_seekFloor = 0;
  std::shared_ptr<const std::wstring> m_path;
  bool m_planned = false;
  struct PlannedChunk
  {
    std::uint32_t slot;
    std::uint64_t firstRecordId;
    std::uint64_t lastRecordId;
    // The range came from a valid chunk header, which a cleared or wrapped log rewrites.
    bool fromHeader;
  };
  std::vector<PlannedChunk> m_plan; // chunks in reading order
  std::uint32_t m_newestSlot = 0;
  std::size_t m_nextSlot = 0;
  std::shared_ptr<SharedChunk> m_chunk;
  std::size_t m_nextRecord = 0;
  RecordIdSet m_delivered;
  std::size_t m_chunksLoaded = 0;
  evtx::EventTree m_tree;
};

class ResultSetObject final : public EvtObject
{
public:
  ResultSetObject(evtx::query::Query query, std::vector<ChannelCursor> cursors, evtx::query::EvalContext context);

  // Why Next produced fewer events than asked.
  enum class Shortfall
  {
    None,     // none, or the end of the result
    TimedOut, // the deadline passed; the next call goes on from there
    Stale     // a log was cleared or wrapped: the rest of the result is lost, for good
  };

  // Fills up to `count` events. A deadline (GetTickCount64 time) is checked only after a loaded
  // chunk is finished, so every call makes progress. Returns the number produced.
  std::size_t Next(std::size_t count, std::vector<std::shared_ptr<EventObject>>& out,
                   const std::function<bool()>& deadlinePassed, Shortfall& shortfall);

  // EvtSeek: origin is one of EVT_SEEK_FLAGS' origins; mark is the bookmark's entry for
  // EvtSeekRelativeToBookmark. Returns 0 or the error to report.
  std::uint32_t Seek(std::uint32_t origin, std::int64_t offset, const std::wstring* markChannel,
                     std::uint64_t markRecordId, bool strict);

private:
  // The next event in result order, ignoring time-outs; false at the end or when stale.
  bool Pull(std::shared_ptr<EventObject>& out, std::size_t& cursor);
  void RewindAll();
  // Moves to the target-th event of the result (0 = the first). Past either end: with strict,
  // nothing moves and ERROR_NOT_FOUND is returned; else the cursor stops on the nearest event.
  std::uint32_t GoTo(std::int64_t target, bool strict, std::int64_t before);
  // m_position, counted afresh when a seek from a bookmark left it unknown.
  std::int64_t CurrentPosition();
  std::uint32_t SeekFromMark(std::size_t cursor, std::uint64_t recordId, std::int64_t offset, bool strict,
                             std::int64_t before);
  // Number of events before the first one at or past the mark in its channel, and whether that
  // event is the marked one.
  bool FindMark(std::size_t cursor, std::uint64_t recordId, std::int64_t& index, bool& exact);
  // Back to the event at `before`, or to the start when that is unknown.
  void Restore(std::int64_t before);

  std::mutex m_lock;
  evtx::query::Query m_query;
  std::vector<ChannelCursor> m_cursors;
  std::size_t m_current = 0;
  bool m_stale = false;
  evtx::query::EvalContext m_context;
  // An event a seek has read but EvtNext has yet to hand out.
  std::shared_ptr<EventObject> m_peeked;
  // Index in the result of the next event to hand out; unknown (-1) after a seek from a
  // bookmark, which does not count the events it passes over.
  std::int64_t m_position = 0;
};
} // namespace natc::winevt

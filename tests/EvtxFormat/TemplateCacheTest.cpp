// Templates shared by the chunks of one reader: a definition repeated in another chunk is
// compiled once, and one whose bytes differ under the same GUID is compiled on its own.
#include "Evtx/Chunk.h"
#include "Evtx/TemplateCache.h"
#include "Evtx/Writer.h"
#include "TestLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace
{
using evtx::test::TempLog;

evtx::WriterEvent Event(const std::string& dataName)
{
  evtx::WriterEvent e;
  e.eventId = 7;
  e.timeCreated = 131124751716816408ull;
  e.computer = "host-1";
  e.data.push_back({dataName, evtx::WriterValue::Text(std::string(200, 'v'))});
  return e;
}

// A log whose first chunk holds one event of shape "a" then events of shape "b", and whose
// later chunks hold only shape "b": the template of "b" sits at another offset in chunk 1.
std::vector<std::uint8_t> WriteLog(const TempLog& log)
{
  evtx::Writer writer;
  EXPECT_TRUE(writer.Create(log.Path()));
  writer.Append(Event("a"));
  for (int i = 0; i < 300; ++i)
    writer.Append(Event("b"));
  writer.Close();
  std::ifstream in(log.Path(), std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

const std::uint8_t* ChunkBytes(const std::vector<std::uint8_t>& file, std::size_t index)
{
  return file.data() + evtx::kFileHeaderSize + index * evtx::kChunkSize;
}

// Chunk offset of the template definition that a record's instance names.
std::uint32_t DefinitionOf(const evtx::Chunk& chunk, const evtx::Record& record)
{
  // Record header (24), fragment header (4), instance token (1), unknown (1), template id (4).
  std::uint32_t offset = 0;
  std::memcpy(&offset, chunk.Data() + record.offset + 24 + 4 + 6, 4);
  return offset;
}

std::vector<std::string> RenderAll(evtx::Chunk& chunk)
{
  std::vector<std::string> out;
  for (const evtx::Record& record : chunk.Records())
  {
    out.emplace_back();
    EXPECT_EQ(chunk.RenderXml(record, out.back()), evtx::Status::Ok);
  }
  return out;
}

// The same chunk read without a shared cache.
std::vector<std::string> RenderAlone(const std::uint8_t* bytes)
{
  evtx::Chunk chunk;
  EXPECT_EQ(chunk.Load(bytes, evtx::kChunkSize), evtx::Status::Ok);
  return RenderAll(chunk);
}

// A copy of a chunk whose template says "host-2" where the original says "host-1" (its GUID
// and size unchanged, as in a chunk damaged in place); empty when the name is not found.
std::vector<std::uint8_t> Damaged(const std::vector<std::uint8_t>& file, std::size_t index)
{
  std::vector<std::uint8_t> damaged(ChunkBytes(file, index), ChunkBytes(file, index) + evtx::kChunkSize);
  const std::uint8_t host1[] = {'h', 0, 'o', 0, 's', 0, 't', 0, '-', 0, '1', 0};
  const auto found = std::search(damaged.begin(), damaged.end(), std::begin(host1), std::end(host1));
  if (found == damaged.end())
    return {};
  found[10] = '2';
  return damaged;
}

TEST(TemplateCache, DefinitionRepeatedAtAnotherOffsetCompilesOnce)
{
  const TempLog log;
  const std::vector<std::uint8_t> file = WriteLog(log);
  ASSERT_GE(file.size(), evtx::kFileHeaderSize + 2 * evtx::kChunkSize);
  const auto cache = std::make_shared<evtx::TemplateCache>();
  evtx::Chunk first;
  evtx::Chunk second;
  first.ShareTemplates(cache);
  second.ShareTemplates(cache);
  ASSERT_EQ(first.Load(ChunkBytes(file, 0), evtx::kChunkSize), evtx::Status::Ok);
  ASSERT_EQ(second.Load(ChunkBytes(file, 1), evtx::kChunkSize), evtx::Status::Ok);
  ASSERT_GE(first.Records().size(), 2u);
  ASSERT_FALSE(second.Records().empty());
  ASSERT_NE(DefinitionOf(first, first.Records()[1]), DefinitionOf(second, second.Records()[0]));

  EXPECT_EQ(RenderAll(first), RenderAlone(ChunkBytes(file, 0)));
  EXPECT_EQ(cache->Stored(), 2u);
  EXPECT_EQ(RenderAll(second), RenderAlone(ChunkBytes(file, 1)));
  // Chunk 1 took the template of "b" from chunk 0 rather than compiling it.
  EXPECT_EQ(cache->Stored(), 2u);
  EXPECT_EQ(cache->Hits(), 1u);
}

TEST(TemplateCache, SameGuidWithOtherBytesIsNotShared)
{
  const TempLog log;
  const std::vector<std::uint8_t> file = WriteLog(log);
  ASSERT_GE(file.size(), evtx::kFileHeaderSize + 2 * evtx::kChunkSize);
  const std::vector<std::uint8_t> damaged = Damaged(file, 1);
  ASSERT_FALSE(damaged.empty());

  const auto cache = std::make_shared<evtx::TemplateCache>();
  evtx::Chunk original;
  evtx::Chunk changed;
  original.ShareTemplates(cache);
  changed.ShareTemplates(cache);
  ASSERT_EQ(original.Load(ChunkBytes(file, 1), evtx::kChunkSize), evtx::Status::Ok);
  ASSERT_EQ(changed.Load(damaged.data(), damaged.size()), evtx::Status::Ok);
  const std::vector<std::string> originalXml = RenderAll(original);
  const std::vector<std::string> changedXml = RenderAll(changed);
  ASSERT_FALSE(changedXml.empty());
  EXPECT_NE(changedXml[0].find("<Computer>host-2</Computer>"), std::string::npos);
  EXPECT_EQ(changedXml, RenderAlone(damaged.data()));
  EXPECT_EQ(originalXml, RenderAlone(ChunkBytes(file, 1)));
  EXPECT_EQ(cache->Stored(), 2u);
  EXPECT_EQ(cache->Hits(), 0u);
}

// The smallest limit (in steps of 64 bytes) at which a cache keeps the one template of chunk 1.
std::size_t OneTemplateLimit(const std::vector<std::uint8_t>& file)
{
  for (std::size_t limit = 64; limit < evtx::TemplateCache::kDefaultLimit; limit += 64)
  {
    const auto cache = std::make_shared<evtx::TemplateCache>(limit);
    evtx::Chunk chunk;
    chunk.ShareTemplates(cache);
    EXPECT_EQ(chunk.Load(ChunkBytes(file, 1), evtx::kChunkSize), evtx::Status::Ok);
    RenderAll(chunk);
    if (cache->Stored() == 1)
      return limit;
  }
  return 0;
}

TEST(TemplateCache, TemplateTakenStaysWhenTheCacheStartsOver)
{
  const TempLog log;
  const std::vector<std::uint8_t> file = WriteLog(log);
  ASSERT_GE(file.size(), evtx::kFileHeaderSize + 3 * evtx::kChunkSize);
  const std::vector<std::uint8_t> damaged = Damaged(file, 2);
  ASSERT_FALSE(damaged.empty());
  const std::size_t limit = OneTemplateLimit(file);
  ASSERT_NE(limit, 0u);

  // Room for one template: storing the damaged chunk's drops the one chunk 2 took from chunk 1.
  const auto cache = std::make_shared<evtx::TemplateCache>(limit);
  evtx::Chunk first;
  evtx::Chunk taker;
  evtx::Chunk changed;
  for (evtx::Chunk* chunk : {&first, &taker, &changed})
    chunk->ShareTemplates(cache);
  ASSERT_EQ(first.Load(ChunkBytes(file, 1), evtx::kChunkSize), evtx::Status::Ok);
  ASSERT_EQ(taker.Load(ChunkBytes(file, 2), evtx::kChunkSize), evtx::Status::Ok);
  ASSERT_EQ(changed.Load(damaged.data(), damaged.size()), evtx::Status::Ok);
  RenderAll(first);
  const std::vector<evtx::Record>& records = taker.Records();
  ASSERT_GE(records.size(), 2u);
  std::string head;
  ASSERT_EQ(taker.RenderXml(records[0], head), evtx::Status::Ok);
  ASSERT_EQ(cache->Hits(), 1u);
  EXPECT_EQ(RenderAll(changed), RenderAlone(damaged.data()));
  EXPECT_EQ(cache->Stored(), 2u);
  EXPECT_EQ(RenderAll(taker), RenderAlone(ChunkBytes(file, 2)));
}

TEST(TemplateCache, ChunksOfAFileRenderAsEachAlone)
{
  const TempLog log;
  const std::vector<std::uint8_t> file = WriteLog(log);
  evtx::File reader;
  ASSERT_EQ(reader.Open(log.Path()), evtx::Status::Ok);
  ASSERT_GE(reader.ChunkCount(), 2u);
  for (std::uint32_t i = 0; i < reader.ChunkCount(); ++i)
  {
    std::shared_ptr<evtx::Chunk> chunk;
    ASSERT_EQ(reader.LoadChunk(i, chunk), evtx::Status::Ok);
    EXPECT_EQ(RenderAll(*chunk), RenderAlone(ChunkBytes(file, i)));
  }
}
} // namespace

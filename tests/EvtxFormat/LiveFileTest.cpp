// A log that is still being written: appended records become visible on Refresh, and a record
// whose chunk header has not been committed is never delivered.
#include "Evtx/File.h"
#include "Evtx/Writer.h"
#include "TestLog.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <vector>

namespace
{
using evtx::test::ReadAll;
using evtx::test::TempLog;

evtx::WriterEvent Event(int i)
{
  evtx::WriterEvent e;
  e.eventId = static_cast<std::uint16_t>(i);
  e.timeCreated = 131124751716816408ull + static_cast<std::uint64_t>(i);
  e.data = {{"i", evtx::WriterValue::Int(evtx::ValueType::UInt32, i)},
            {"pad", evtx::WriterValue::Text(std::string(200, 'z'))}};
  return e;
}

TEST(LiveFile, AppendedRecordsAppearAfterRefresh)
{
  TempLog log;
  evtx::Writer writer;
  ASSERT_TRUE(writer.Create(log.Path()));
  for (int i = 0; i < 10; ++i)
    writer.Append(Event(i));

  evtx::File reader;
  ASSERT_EQ(reader.Open(log.Path()), evtx::Status::Ok);
  EXPECT_EQ(ReadAll(reader).size(), 10u);

  // Enough to spill into new chunks while the reader keeps its handle.
  for (int i = 10; i < 700; ++i)
    writer.Append(Event(i));
  ASSERT_EQ(reader.Refresh(), evtx::Status::Ok);
  const auto records = ReadAll(reader);
  ASSERT_EQ(records.size(), 700u);
  for (std::size_t i = 0; i < records.size(); ++i)
    EXPECT_EQ(records[i].id, i + 1);
  EXPECT_EQ(reader.Header().nextRecordId, 701u);
}

TEST(LiveFile, RecordNotYetCoveredByChunkHeaderIsNotDelivered)
{
  TempLog log;
  evtx::Writer writer;
  ASSERT_TRUE(writer.Create(log.Path()));
  for (int i = 0; i < 5; ++i)
    writer.Append(Event(i));
  // Keep the committed chunk header, append one more record, then put the old header back:
  // the file now looks as it does between the writer's record write and header write.
  std::vector<std::uint8_t> header(evtx::kChunkHeaderSize);
  const int fd = ::open(log.Path().c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::pread(fd, header.data(), header.size(), evtx::kFileHeaderSize), static_cast<ssize_t>(header.size()));
  writer.Append(Event(5));
  ASSERT_EQ(::pwrite(fd, header.data(), header.size(), evtx::kFileHeaderSize), static_cast<ssize_t>(header.size()));
  ::close(fd);

  const auto records = ReadAll(log.Path());
  ASSERT_EQ(records.size(), 5u);
  EXPECT_EQ(records.back().id, 5u);
}

TEST(LiveFile, WriterReopensAndContinues)
{
  TempLog log;
  {
    evtx::Writer writer;
    ASSERT_TRUE(writer.Create(log.Path()));
    for (int i = 0; i < 3; ++i)
      writer.Append(Event(i));
  }
  evtx::Writer writer;
  std::string error;
  ASSERT_TRUE(writer.Open(log.Path(), &error)) << error;
  EXPECT_EQ(writer.NextRecordId(), 4u);
  EXPECT_EQ(writer.Append(Event(3)), 4u);
  const auto records = ReadAll(log.Path());
  ASSERT_EQ(records.size(), 4u);
  EXPECT_NE(records[3].xml.find("<EventRecordID>4</EventRecordID>"), std::string::npos);
}

TEST(LiveFile, ChunkBuffersAreReusedWhenReleased)
{
  TempLog log;
  evtx::Writer writer;
  ASSERT_TRUE(writer.Create(log.Path()));
  for (int i = 0; i < 700; ++i)
    writer.Append(Event(i));
  evtx::File reader;
  ASSERT_EQ(reader.Open(log.Path()), evtx::Status::Ok);
  ASSERT_GE(reader.ChunkCount(), 2u);
  std::shared_ptr<evtx::Chunk> first;
  ASSERT_EQ(reader.LoadChunk(0, first), evtx::Status::Ok);
  const evtx::Chunk* address = first.get();
  first.reset();
  std::shared_ptr<evtx::Chunk> second;
  ASSERT_EQ(reader.LoadChunk(1, second), evtx::Status::Ok);
  EXPECT_EQ(second.get(), address);
  // A chunk the caller still holds is not overwritten.
  std::shared_ptr<evtx::Chunk> third;
  ASSERT_EQ(reader.LoadChunk(0, third), evtx::Status::Ok);
  EXPECT_NE(third.get(), second.get());
  EXPECT_EQ(second->Index(), 1u);
  EXPECT_EQ(third->Index(), 0u);
}
} // namespace

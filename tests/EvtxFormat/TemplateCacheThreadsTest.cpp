// Templates shared by chunks rendering on two threads at once: each chunk renders as it does
// alone, whichever thread compiled the template it took from the cache.
#include "Evtx/Chunk.h"
#include "Evtx/TemplateCache.h"
#include "Evtx/Writer.h"
#include "TestLog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <thread>

namespace
{
// Events of three shapes, in turn, over several chunks: every chunk repeats their definitions.
std::vector<std::uint8_t> WriteLog(const std::string& path)
{
  evtx::Writer writer;
  EXPECT_TRUE(writer.Create(path));
  for (int i = 0; i < 900; ++i)
  {
    evtx::WriterEvent e;
    e.eventId = static_cast<std::uint16_t>(10 + i % 3);
    e.timeCreated = 131124751716816408ull + std::uint64_t(i);
    e.computer = "host-1";
    e.data.push_back({"shape" + std::to_string(i % 3), evtx::WriterValue::Text(std::string(150, 'v'))});
    writer.Append(e);
  }
  writer.Close();
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> Render(const std::uint8_t* bytes, const std::shared_ptr<evtx::TemplateCache>& cache)
{
  evtx::Chunk chunk;
  if (cache)
    chunk.ShareTemplates(cache);
  EXPECT_EQ(chunk.Load(bytes, evtx::kChunkSize), evtx::Status::Ok);
  std::vector<std::string> out;
  for (const evtx::Record& record : chunk.Records())
  {
    out.emplace_back();
    EXPECT_EQ(chunk.RenderXml(record, out.back()), evtx::Status::Ok);
  }
  return out;
}

TEST(EvtxTemplateCacheThreads, ChunksOnTwoThreadsRenderAsEachAlone)
{
  const evtx::test::TempLog log;
  const std::vector<std::uint8_t> file = WriteLog(log.Path());
  const std::size_t chunks = (file.size() - evtx::kFileHeaderSize) / evtx::kChunkSize;
  ASSERT_GE(chunks, 4u);
  std::vector<std::vector<std::string>> alone(chunks);
  for (std::size_t i = 0; i < chunks; ++i)
    alone[i] = Render(file.data() + evtx::kFileHeaderSize + i * evtx::kChunkSize, nullptr);

  const auto cache = std::make_shared<evtx::TemplateCache>();
  std::vector<std::vector<std::string>> shared(chunks);
  auto work = [&](std::size_t first) {
    for (std::size_t i = first; i < chunks; i += 2)
      shared[i] = Render(file.data() + evtx::kFileHeaderSize + i * evtx::kChunkSize, cache);
  };
  std::thread other(work, 1);
  work(0);
  other.join();
  for (std::size_t i = 0; i < chunks; ++i)
    EXPECT_EQ(shared[i], alone[i]) << "chunk " << i;
  EXPECT_GT(cache->Hits(), 0u);
}
} // namespace

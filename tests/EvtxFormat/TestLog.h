// Helpers for tests: a temporary log path and a reader that collects every record's XML.
#pragma once

#include "Evtx/Event.h"
#include "Evtx/File.h"
#include "Evtx/Render.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace evtx::test
{
// A log file path unique to the running test, removed afterwards.
class TempLog
{
public:
  TempLog()
  {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = (std::filesystem::temp_directory_path() /
             (std::string("evtx_") + info->test_suite_name() + "_" + info->name() + "_" +
              std::to_string(::getpid()) + ".evtx"))
              .string();
  }
  ~TempLog() { std::filesystem::remove(path_); }
  const std::string& Path() const { return path_; }

private:
  std::string path_;
};

struct ReadRecord
{
  std::uint64_t id = 0;
  std::string xml;
};

// Reads every record of every readable chunk; checks that both renderers agree.
inline std::vector<ReadRecord> ReadAll(File& file)
{
  std::vector<ReadRecord> out;
  EventTree tree;
  for (std::uint32_t i = 0; i < file.ChunkCount(); ++i)
  {
    std::shared_ptr<Chunk> chunk;
    if (file.LoadChunk(i, chunk) != Status::Ok)
      continue;
    for (const Record& r : chunk->Records())
    {
      ReadRecord rr;
      rr.id = r.id;
      EXPECT_EQ(chunk->RenderXml(r, rr.xml), Status::Ok);
      EXPECT_EQ(chunk->Decode(r, tree), Status::Ok);
      std::string slow;
      RenderTree(tree, slow);
      EXPECT_EQ(slow, rr.xml);
      out.push_back(std::move(rr));
    }
  }
  return out;
}

inline std::vector<ReadRecord> ReadAll(const std::string& path)
{
  File file;
  EXPECT_EQ(file.Open(path), Status::Ok);
  return ReadAll(file);
}
} // namespace evtx::test

// CRC32 and the file and chunk header parsers, on hand-made bytes.
#include "Evtx/Crc32.h"
#include "Evtx/File.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace
{
TEST(Crc32, KnownVector)
{
  EXPECT_EQ(evtx::Crc32("123456789", 9), 0xCBF43926u);
  EXPECT_EQ(evtx::Crc32("", 0), 0u);
  // Continuing over pieces gives the CRC of the whole.
  EXPECT_EQ(evtx::Crc32("6789", 4, evtx::Crc32("12345", 5)), 0xCBF43926u);
}

std::vector<std::uint8_t> ChunkHeaderBytes()
{
  std::vector<std::uint8_t> b(512, 0);
  std::memcpy(b.data(), "ElfChnk\0", 8);
  b[24] = 5;   // first record id
  b[32] = 9;   // last record id
  b[48] = 0x00;
  b[49] = 0x02;  // free space 512
  const std::uint32_t crc = evtx::Crc32(b.data() + 128, 384, evtx::Crc32(b.data(), 120));
  std::memcpy(b.data() + 124, &crc, 4);
  return b;
}

TEST(ChunkHeader, ParsesAndChecks)
{
  auto b = ChunkHeaderBytes();
  evtx::ChunkHeader h;
  ASSERT_EQ(evtx::ParseChunkHeader(b.data(), b.size(), h), evtx::Status::Ok);
  EXPECT_EQ(h.firstRecordId, 5u);
  EXPECT_EQ(h.lastRecordId, 9u);
  EXPECT_EQ(h.freeSpaceOffset, 512u);
  b[30] ^= 1;
  EXPECT_EQ(evtx::ParseChunkHeader(b.data(), b.size(), h), evtx::Status::BadHeaderChecksum);
  b[0] = 'X';
  EXPECT_EQ(evtx::ParseChunkHeader(b.data(), b.size(), h), evtx::Status::BadSignature);
  std::vector<std::uint8_t> zeros(512, 0);
  EXPECT_EQ(evtx::ParseChunkHeader(zeros.data(), zeros.size(), h), evtx::Status::Empty);
  EXPECT_EQ(evtx::ParseChunkHeader(zeros.data(), 100, h), evtx::Status::Truncated);
}

TEST(FileHeader, SignatureAndChecksum)
{
  std::vector<std::uint8_t> b(128, 0);
  evtx::FileHeader h;
  EXPECT_EQ(evtx::ParseFileHeader(b.data(), b.size(), h), evtx::Status::NotEvtx);
  std::memcpy(b.data(), "ElfFile\0", 8);
  b[24] = 42;
  const std::uint32_t crc = evtx::Crc32(b.data(), 120);
  std::memcpy(b.data() + 124, &crc, 4);
  ASSERT_EQ(evtx::ParseFileHeader(b.data(), b.size(), h), evtx::Status::Ok);
  EXPECT_TRUE(h.checksumOk);
  EXPECT_EQ(h.nextRecordId, 42u);
  b[50] = 1;
  ASSERT_EQ(evtx::ParseFileHeader(b.data(), b.size(), h), evtx::Status::Ok);
  EXPECT_FALSE(h.checksumOk);
  EXPECT_EQ(evtx::ParseFileHeader(b.data(), 64, h), evtx::Status::Truncated);
}

TEST(File, OpenErrors)
{
  evtx::File file;
  EXPECT_EQ(file.Open("/nonexistent/x.evtx"), evtx::Status::IoError);
  const auto path = std::filesystem::temp_directory_path() / "evtx_header_test_not_evtx.bin";
  {
    std::ofstream out(path, std::ios::binary);
    out << std::string(4096, 'x');
  }
  EXPECT_EQ(file.Open(path.string()), evtx::Status::NotEvtx);
  EXPECT_FALSE(file.IsOpen());
  std::filesystem::remove(path);
}

TEST(Chunk, LoadRejectsShortInput)
{
  evtx::Chunk chunk;
  const auto b = ChunkHeaderBytes();
  EXPECT_EQ(chunk.Load(b.data(), b.size()), evtx::Status::Truncated);
  EXPECT_TRUE(chunk.Records().empty());
}
} // namespace

namespace
{
TEST(File, ChunksInLogOrderFollowsRecordIds)
{
  // A wrapped log is simulated by swapping two chunk slots of a hand-made file.
  const auto path = std::filesystem::temp_directory_path() / "evtx_header_test_order.evtx";
  std::vector<std::uint8_t> bytes(evtx::kFileHeaderSize + 3 * evtx::kChunkSize, 0);
  std::memcpy(bytes.data(), "ElfFile\0", 8);
  const std::uint64_t firstIds[3] = {200, 0, 100};  // slot 1 stays unused
  for (int slot = 0; slot < 3; ++slot)
  {
    if (firstIds[slot] == 0)
      continue;
    auto header = ChunkHeaderBytes();
    std::memcpy(header.data() + 24, &firstIds[slot], 8);
    const std::uint32_t crc = evtx::Crc32(header.data() + 128, 384, evtx::Crc32(header.data(), 120));
    std::memcpy(header.data() + 124, &crc, 4);
    std::memcpy(bytes.data() + evtx::kFileHeaderSize + slot * evtx::kChunkSize, header.data(), header.size());
  }
  {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  {
    evtx::File file;
    ASSERT_EQ(file.Open(path.string()), evtx::Status::Ok);
    EXPECT_EQ(file.ChunkCount(), 3u);
    EXPECT_EQ(evtx::ChunksInLogOrder(file), (std::vector<std::uint32_t>{2, 0}));
  }
  // Closed first: Windows deletes no file that is still open without FILE_SHARE_DELETE
  // (https://learn.microsoft.com/en-us/windows/win32/api/fileapi/nf-fileapi-deletefilew).
  std::filesystem::remove(path);
}
} // namespace

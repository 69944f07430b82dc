// Parsing of the file header and the chunk header (pure functions over bytes).
#include "Bytes.h"
#include "Evtx/Crc32.h"
#include "Evtx/File.h"

#include <cstring>

namespace evtx
{
using detail::Le16;
using detail::Le32;
using detail::Le64;

Status ParseFileHeader(const std::uint8_t* bytes, std::size_t size, FileHeader& out)
{
  if (size < 128)
    return Status::Truncated;
  if (std::memcmp(bytes, "ElfFile\0", 8) != 0)
    return Status::NotEvtx;
  out.firstChunk = Le64(bytes + 8);
  out.lastChunk = Le64(bytes + 16);
  out.nextRecordId = Le64(bytes + 24);
  out.headerSize = Le32(bytes + 32);
  out.minorVersion = Le16(bytes + 36);
  out.majorVersion = Le16(bytes + 38);
  out.headerBlockSize = Le16(bytes + 40);
  out.chunkCount = Le16(bytes + 42);
  out.flags = Le32(bytes + 120);
  out.checksum = Le32(bytes + 124);
  out.checksumOk = Crc32(bytes, 120) == out.checksum;
  return Status::Ok;
}

Status ParseChunkHeader(const std::uint8_t* bytes, std::size_t size, ChunkHeader& out)
{
  if (size < kChunkHeaderSize)
    return Status::Truncated;
  if (std::memcmp(bytes, "ElfChnk\0", 8) != 0)
  {
    for (std::size_t i = 0; i < kChunkHeaderSize; ++i)
      if (bytes[i] != 0)
        return Status::BadSignature;
    return Status::Empty;
  }
  out.firstRecordNumber = Le64(bytes + 8);
  out.lastRecordNumber = Le64(bytes + 16);
  out.firstRecordId = Le64(bytes + 24);
  out.lastRecordId = Le64(bytes + 32);
  out.headerSize = Le32(bytes + 40);
  out.lastRecordOffset = Le32(bytes + 44);
  out.freeSpaceOffset = Le32(bytes + 48);
  out.recordsChecksum = Le32(bytes + 52);
  out.flags = Le32(bytes + 120);
  out.headerChecksum = Le32(bytes + 124);
  const std::uint32_t crc = Crc32(bytes + 128, kChunkHeaderSize - 128, Crc32(bytes, 120));
  return crc == out.headerChecksum ? Status::Ok : Status::BadHeaderChecksum;
}
} // namespace evtx

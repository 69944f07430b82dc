// An .evtx file opened for reading with bounded memory: the file header, then chunks read one
// at a time (pread of 64 KiB) whatever the file size. Typical use:
//
//   evtx::File file;
//   if (file.Open(path) != evtx::Status::Ok) ...;
//   for (std::uint32_t i = 0; i < file.ChunkCount(); ++i) {
//     evtx::ChunkHeader h;                       // cheap: 512 bytes, lets a query skip a chunk
//     if (file.ReadChunkHeader(i, h) != evtx::Status::Ok || h.lastRecordId <= bound) continue;
//     std::shared_ptr<evtx::Chunk> chunk;
//     if (file.LoadChunk(i, chunk) != evtx::Status::Ok) continue;   // damaged: go on
//     for (const evtx::Record& r : chunk->Records()) chunk->RenderXml(r, out);
//   }
//
// Live logs: Refresh() re-reads the header and the size; chunks and records appended since are
// then visible. A record is delivered only when the chunk header that covers it has a valid
// CRC, so a record still being written is never seen (the writer commits the record first, the
// chunk header second, the file header last).
//
// Thread safety: one File per thread. Chunks handed out belong to the same thread.
#pragma once

#include "Evtx/Chunk.h"
#include "Evtx/TemplateCache.h"
#include "Evtx/Types.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace evtx
{
class File
{
public:
  File();
  ~File();
  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Opens and reads the file header. NotEvtx for a wrong signature; a bad header CRC is only
  // reported in Header().checksumOk (the chunks carry their own checks).
  Status Open(const std::string& path);
  void Close() noexcept;
  bool IsOpen() const noexcept { return fd_ >= 0; }
  const std::string& Path() const noexcept { return path_; }

  const FileHeader& Header() const noexcept { return header_; }
  std::uint64_t Size() const noexcept { return size_; }
  // Chunk slots present in the file, by its size (unused slots load as Status::Empty).
  std::uint32_t ChunkCount() const noexcept;

  // Re-reads the file header and size, for a file that is still being written.
  Status Refresh();

  // Reads only the 512-byte header of chunk `index` and checks its signature and CRC.
  // BadHeaderChecksum still fills `out` (LoadChunk reads such a chunk's intact records);
  // Empty for an unused slot, BadSignature for a damaged one.
  Status ReadChunkHeader(std::uint32_t index, ChunkHeader& out);
  // Reads and checks chunk `index`. Chunk buffers are recycled once no caller holds them, so
  // memory stays at the chunks the caller keeps plus one.
  Status LoadChunk(std::uint32_t index, std::shared_ptr<Chunk>& out);

private:
  Status ReadAt(std::uint64_t offset, void* buffer, std::size_t size);

  int fd_ = -1;
  std::string path_;
  FileHeader header_;
  std::uint64_t size_ = 0;
  std::vector<std::shared_ptr<Chunk>> pool_;
  // Templates compiled once for all the chunks of this reader.
  std::shared_ptr<TemplateCache> templates_;
};

// Chunk indexes in log order (oldest records first): a log that wrapped around stores its
// chunks out of file order. Unused and unreadable slots are left out; a chunk whose header CRC
// fails is kept and placed by its (possibly stale) record range.
std::vector<std::uint32_t> ChunksInLogOrder(File& file);

// Parses the first bytes of a file header (pure; used by File and by tests).
Status ParseFileHeader(const std::uint8_t* bytes, std::size_t size, FileHeader& out);
// Parses and checks a chunk header (signature, CRC).
Status ParseChunkHeader(const std::uint8_t* bytes, std::size_t size, ChunkHeader& out);
} // namespace evtx

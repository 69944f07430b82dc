// File: header and chunks read with pread, chunk buffers recycled from a small pool.
#include "Evtx/File.h"

#include "Bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace evtx
{
namespace
{
constexpr std::uint32_t kFileDirty = 0x1;
constexpr std::uint32_t kRecordSignature = 0x00002a2a;
constexpr std::uint32_t kRecordHeaderSize = 24;
// Chunk header fields that describe the records' end.
constexpr std::size_t kLastRecordNumberAt = 16;
constexpr std::size_t kLastRecordIdAt = 32;
constexpr std::size_t kLastRecordOffsetAt = 44;
constexpr std::size_t kFreeSpaceOffsetAt = 48;

void Store32(std::uint8_t* p, std::uint32_t v) { std::memcpy(p, &v, 4); }
void Store64(std::uint8_t* p, std::uint64_t v) { std::memcpy(p, &v, 8); }

// A log left dirty (not closed cleanly) may hold records that its chunk header does not cover
// yet: the header is rewritten after the records. Windows recovers them when it opens a dirty
// log, so the records that follow the header's free-space offset, intact and numbered on from
// its last record, are taken into the chunk by moving the header's end fields past them (the
// header then no longer matches its CRC, as for any stale header).
// https://computer.forensikblog.de/en/2007/07/evtx-file-header.html (flag bit 0: the service scans
// a dirty file when it reopens it and fixes the headers)
void RecoverRecordsPastFreeSpace(std::uint8_t* data)
{
  ChunkHeader header;
  const Status status = ParseChunkHeader(data, kChunkHeaderSize, header);
  if (status != Status::Ok && status != Status::BadHeaderChecksum)
    return;
  const std::uint32_t end = header.freeSpaceOffset;
  if (end < kChunkHeaderSize || end > kChunkSize)
    return;
  std::uint64_t nextId = end == kChunkHeaderSize ? header.firstRecordId : header.lastRecordId + 1;
  std::uint64_t nextNumber = end == kChunkHeaderSize ? header.firstRecordNumber : header.lastRecordNumber + 1;
  std::uint32_t pos = end;
  std::uint32_t last = header.lastRecordOffset;
  while (pos + kRecordHeaderSize + 4 <= kChunkSize)
  {
    const std::uint8_t* record = data + pos;
    const std::uint32_t size = detail::Le32(record + 4);
    if (detail::Le32(record) != kRecordSignature || size < kRecordHeaderSize + 4 || size > kChunkSize - pos ||
        size % 8 != 0 || detail::Le32(record + size - 4) != size || detail::Le64(record + 8) != nextId)
      break;
    last = pos;
    pos += size;
    ++nextId;
    ++nextNumber;
  }
  if (pos == end)
    return;
  Store64(data + kLastRecordNumberAt, nextNumber - 1);
  Store64(data + kLastRecordIdAt, nextId - 1);
  Store32(data + kLastRecordOffsetAt, last);
  Store32(data + kFreeSpaceOffsetAt, pos);
}
} // namespace

File::File() = default;

File::~File()
{
  Close();
}

File::File(File&& other) noexcept
  : fd_(std::exchange(other.fd_, -1)), path_(std::move(other.path_)), header_(other.header_),
    size_(other.size_), pool_(std::move(other.pool_)), templates_(std::move(other.templates_))
{
}

File& File::operator=(File&& other) noexcept
{
  if (this != &other)
  {
    Close();
    fd_ = std::exchange(other.fd_, -1);
    path_ = std::move(other.path_);
    header_ = other.header_;
    size_ = other.size_;
    pool_ = std::move(other.pool_);
    templates_ = std::move(other.templates_);
  }
  return *this;
}

void File::Close() noexcept
{
  if (fd_ >= 0)
    ::close(fd_);
  fd_ = -1;
  header_ = FileHeader{};
  size_ = 0;
}

Status File::Open(const std::string& path)
{
  Close();
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return Status::IoError;
  fd_ = fd;
  path_ = path;
  const Status status = Refresh();
  if (status != Status::Ok)
    Close();
  return status;
}

Status File::ReadAt(std::uint64_t offset, void* buffer, std::size_t size)
{
  auto* out = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  while (done < size)
  {
    const ssize_t n = ::pread(fd_, out + done, size - done, static_cast<off_t>(offset + done));
    if (n < 0)
    {
      if (errno == EINTR)
        continue;
      return Status::IoError;
    }
    if (n == 0)
      return Status::Truncated;
    done += static_cast<std::size_t>(n);
  }
  return Status::Ok;
}

Status File::Refresh()
{
  if (fd_ < 0)
    return Status::IoError;
  struct stat st{};
  if (::fstat(fd_, &st) != 0)
    return Status::IoError;
  size_ = static_cast<std::uint64_t>(st.st_size);
  std::uint8_t bytes[128];
  if (size_ < sizeof bytes)
    return size_ == 0 ? Status::NotEvtx : Status::Truncated;
  const Status read = ReadAt(0, bytes, sizeof bytes);
  if (read != Status::Ok)
    return read;
  FileHeader header;
  const Status status = ParseFileHeader(bytes, sizeof bytes, header);
  if (status == Status::Ok)
    header_ = header;
  return status;
}

std::uint32_t File::ChunkCount() const noexcept
{
  if (size_ <= kFileHeaderSize)
    return 0;
  return static_cast<std::uint32_t>((size_ - kFileHeaderSize) / kChunkSize);
}

Status File::ReadChunkHeader(std::uint32_t index, ChunkHeader& out)
{
  if (fd_ < 0)
    return Status::IoError;
  if (index >= ChunkCount())
    return Status::Truncated;
  std::uint8_t bytes[kChunkHeaderSize];
  const std::uint64_t offset = kFileHeaderSize + std::uint64_t(index) * kChunkSize;
  Status status = ReadAt(offset, bytes, sizeof bytes);
  if (status != Status::Ok)
    return status;
  status = ParseChunkHeader(bytes, sizeof bytes, out);
  // A writer may have been rewriting the header while we read it: read once more.
  if (status == Status::BadHeaderChecksum && ReadAt(offset, bytes, sizeof bytes) == Status::Ok)
    status = ParseChunkHeader(bytes, sizeof bytes, out);
  return status;
}

Status File::LoadChunk(std::uint32_t index, std::shared_ptr<Chunk>& out)
{
  out.reset();
  if (fd_ < 0)
    return Status::IoError;
  if (index >= ChunkCount())
    return Status::Truncated;
  const std::uint64_t offset = kFileHeaderSize + std::uint64_t(index) * kChunkSize;
  // Reuse a chunk object nobody else holds; keep the pool small.
  std::shared_ptr<Chunk> chunk;
  for (auto& pooled : pool_)
    if (pooled.use_count() == 1)
    {
      chunk = pooled;
      break;
    }
  if (!chunk)
  {
    chunk = std::make_shared<Chunk>();
    if (!templates_)
      templates_ = std::make_shared<TemplateCache>();
    chunk->ShareTemplates(templates_);
    if (pool_.size() < 4)
      pool_.push_back(chunk);
  }
  // Read straight into the chunk's own storage: the bytes are copied once, by the kernel.
  Status status = ReadAt(offset, chunk->Buffer(), kChunkSize);
  if (status != Status::Ok)
    return status;
  if ((header_.flags & kFileDirty) != 0)
    RecoverRecordsPastFreeSpace(chunk->Buffer());
  status = chunk->LoadBuffer(index);
  if (!chunk->HeaderChecksumOk() && (status == Status::Ok))
  {
    // A torn read of a header being rewritten: try once more before taking it as damaged.
    if (ReadAt(offset, chunk->Buffer(), kChunkSize) == Status::Ok)
    {
      if ((header_.flags & kFileDirty) != 0)
        RecoverRecordsPastFreeSpace(chunk->Buffer());
      status = chunk->LoadBuffer(index);
    }
  }
  if (status != Status::Ok)
    return status;
  out = std::move(chunk);
  return Status::Ok;
}
std::vector<std::uint32_t> ChunksInLogOrder(File& file)
{
  std::vector<std::pair<std::uint64_t, std::uint32_t>> found;
  for (std::uint32_t i = 0; i < file.ChunkCount(); ++i)
  {
    ChunkHeader header;
    const Status status = file.ReadChunkHeader(i, header);
    if (status == Status::Ok || status == Status::BadHeaderChecksum)
      found.emplace_back(header.firstRecordId, i);
  }
  std::stable_sort(found.begin(), found.end());
  std::vector<std::uint32_t> order;
  order.reserve(found.size());
  for (const auto& entry : found)
    order.push_back(entry.second);
  return order;
}
} // namespace evtx

// File: header and chunks read with pread, chunk buffers recycled from a small pool.
#include "Evtx/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace evtx
{
File::File() = default;

File::~File()
{
  Close();
}

File::File(File&& other) noexcept
  : fd_(std::exchange(other.fd_, -1)), path_(std::move(other.path_)), header_(other.header_),
    size_(other.size_), pool_(std::move(other.pool_))
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
    if (pool_.size() < 4)
      pool_.push_back(chunk);
  }
  // Read straight into the chunk's own storage: the bytes are copied once, by the kernel.
  Status status = ReadAt(offset, chunk->Buffer(), kChunkSize);
  if (status != Status::Ok)
    return status;
  status = chunk->LoadBuffer(index);
  if (!chunk->HeaderChecksumOk() && (status == Status::Ok))
  {
    // A torn read of a header being rewritten: try once more before taking it as damaged.
    if (ReadAt(offset, chunk->Buffer(), kChunkSize) == Status::Ok)
      status = chunk->LoadBuffer(index);
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

// Linux body of WriteFileAtomically: write, fsync, rename, then fsync the directory so that the
// rename itself is durable.
#include "run/AtomicFile.h"

#include "run/StateFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

namespace natc::run
{
namespace
{
// Closes a descriptor on every path.
class CFileDescriptor
{
public:
  explicit CFileDescriptor(int fd) noexcept : m_fd(fd) {}
  ~CFileDescriptor()
  {
    if (m_fd >= 0)
      ::close(m_fd);
  }
  CFileDescriptor(const CFileDescriptor&) = delete;
  CFileDescriptor& operator=(const CFileDescriptor&) = delete;
  int get() const noexcept { return m_fd; }
  int release() noexcept { return std::exchange(m_fd, -1); }

private:
  int m_fd;
};

[[noreturn]] void Fail(const std::string& what, const std::string& path)
{
  throw CStateError(path + ": " + what + ": " + std::strerror(errno));
}
} // namespace

void WriteFileAtomically(const std::string& path, std::string_view contents)
{
  const std::string temporary = path + ".tmp";
  {
    CFileDescriptor file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (file.get() < 0)
      Fail("cannot be written", temporary);
    for (std::size_t written = 0; written < contents.size();)
    {
      const ssize_t now = ::write(file.get(), contents.data() + written, contents.size() - written);
      if (now < 0 && errno == EINTR)
        continue;
      if (now <= 0)
        Fail("cannot be written", temporary);
      written += static_cast<std::size_t>(now);
    }
    // The contents reach the disk before the name does: a crash leaves the old or the new file.
    if (::fsync(file.get()) != 0)
      Fail("cannot be synced", temporary);
    if (::close(file.release()) != 0)
      Fail("cannot be closed", temporary);
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0)
    Fail("cannot replace the state file", path);
  const std::filesystem::path parent = std::filesystem::absolute(path).parent_path();
  const CFileDescriptor directory(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() >= 0)
    ::fsync(directory.get());
}
} // namespace natc::run

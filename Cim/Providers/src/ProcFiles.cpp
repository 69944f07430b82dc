#include "ProcFiles.h"

#include "Cim/Model.h"
#include "Cim/Names.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits.h>
#include <memory>

namespace cim::machine
{
namespace
{
class FileHandle
{
public:
  explicit FileHandle(int fd) : m_fd(fd) {}
  ~FileHandle()
  {
    if (m_fd >= 0)
      close(m_fd);
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  int get() const { return m_fd; }

private:
  int m_fd;
};

struct DirCloser
{
  void operator()(DIR* dir) const { closedir(dir); }
};

constexpr std::uint32_t MiResultFailed = 1;
} // namespace

bool ReadText(const char* path, std::string& buffer)
{
  FileHandle file(open(path, O_RDONLY | O_CLOEXEC));
  if (file.get() < 0)
    return false;
  buffer.clear();
  // /proc files report no size: read in chunks until the end.
  std::size_t used = 0;
  for (;;)
  {
    if (buffer.size() < used + 4096)
      buffer.resize(used + 4096 > buffer.capacity() ? used + 4096 : buffer.capacity());
    const auto got = read(file.get(), buffer.data() + used, buffer.size() - used);
    if (got < 0)
    {
      if (errno == EINTR)
        continue;
      buffer.clear();
      return false;
    }
    if (got == 0)
      break;
    used += static_cast<std::size_t>(got);
  }
  buffer.resize(used);
  return true;
}

std::optional<std::string> ReadLine(const char* path)
{
  std::string text;
  if (!ReadText(path, text))
    return std::nullopt;
  const auto end = text.find('\n');
  if (end != std::string::npos)
    text.resize(end);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    text.pop_back();
  return text;
}

std::optional<std::string> ReadLink(const char* path)
{
  char target[PATH_MAX];
  const auto length = readlink(path, target, sizeof(target));
  if (length <= 0 || static_cast<std::size_t>(length) >= sizeof(target))
    return std::nullopt;
  return std::string(target, static_cast<std::size_t>(length));
}

void ForEachProcessId(const std::function<void(std::uint32_t)>& fn)
{
  const std::unique_ptr<DIR, DirCloser> dir(opendir("/proc"));
  if (!dir)
    FailToRead("/proc");
  while (const dirent* entry = readdir(dir.get()))
  {
    std::uint32_t pid = 0;
    const char* name = entry->d_name;
    if (*name == '\0')
      continue;
    bool numeric = true;
    for (; *name != '\0'; ++name)
    {
      if (*name < '0' || *name > '9')
      {
        numeric = false;
        break;
      }
      pid = pid * 10 + static_cast<std::uint32_t>(*name - '0');
    }
    if (numeric)
      fn(pid);
  }
}

std::uint32_t CountProcesses()
{
  std::uint32_t count = 0;
  ForEachProcessId([&](std::uint32_t) { ++count; });
  return count;
}

void FailToRead(const char* path)
{
  const int error = errno;
  throw Error{MiResultFailed, L"Cannot read " + Widen(path) + L": " + Widen(std::strerror(error))};
}
} // namespace cim::machine

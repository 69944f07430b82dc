#include "Hosts.h"

#include "Evtx/Query/Utf.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace natc::winevt
{
namespace
{
std::string Lower(std::string text)
{
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
  return text;
}

bool IsDirectory(const std::string& path)
{
  std::error_code error;
  return std::filesystem::is_directory(path, error);
}
} // namespace

std::string LocalLogDirectory()
{
  const char* configured = std::getenv(NATC_EVENT_LOG_DIR_VARIABLE);
  return configured != nullptr && *configured != '\0' ? configured : NATC_EVENT_LOG_DIR_DEFAULT;
}

std::string ThisHostName()
{
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0)
    return {};
  return Lower(name);
}

std::optional<std::string> ResolveHost(const wchar_t* server, const std::string& localHostName)
{
  const std::string name = server == nullptr ? std::string() : evtx::query::ToUtf8(server);
  if (!name.empty() && name.front() == '/')
  {
    if (!IsDirectory(name))
      return std::nullopt;
    return name;
  }
  const std::string lower = Lower(name);
  // The short name of this machine matches as well as its full name.
  const std::string shortLocal = localHostName.substr(0, localHostName.find('.'));
  if (lower.empty() || lower == "localhost" || lower == "." || (!lower.empty() && lower == localHostName) ||
      (!shortLocal.empty() && lower == shortLocal))
    return LocalLogDirectory();
  return std::nullopt;
}

std::string ChannelFileName(std::wstring_view channel)
{
  std::string name;
  for (const wchar_t c : channel)
  {
    if (c == L'/')
      name += "%4";
    else
      name += evtx::query::ToUtf8(std::wstring_view(&c, 1));
  }
  return name + ".evtx";
}

std::optional<std::string> FindChannelFile(const std::string& directory, std::wstring_view channel)
{
  const std::string fileName = ChannelFileName(channel);
  std::filesystem::path exact = std::filesystem::path(directory) / fileName;
  std::error_code error;
  if (std::filesystem::is_regular_file(exact, error))
    return exact.string();
  const std::string wanted = Lower(fileName);
  for (std::filesystem::directory_iterator it(directory, error), end; !error && it != end; it.increment(error))
    if (Lower(it->path().filename().string()) == wanted && it->is_regular_file(error))
      return it->path().string();
  return std::nullopt;
}
} // namespace natc::winevt

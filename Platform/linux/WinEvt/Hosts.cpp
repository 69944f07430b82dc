#include "Hosts.h"

#include "Evtx/Query/Utf.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cwctype>
#include <map>
#include <mutex>
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

namespace
{
struct Account
{
  std::wstring user;
  std::wstring password;
  bool mayReadLogs = true;
};

struct Accounts
{
  std::mutex lock;
  std::map<std::string, Account> byDirectory;
};

Accounts& RegisteredAccounts()
{
  static Accounts accounts;
  return accounts;
}

bool SameUser(std::wstring_view a, std::wstring_view b)
{
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) { return std::towlower(x) == std::towlower(y); });
}
} // namespace

void RegisterHostAccount(const std::string& directory, std::wstring user, std::wstring password, bool mayReadLogs)
{
  Accounts& accounts = RegisteredAccounts();
  const std::lock_guard guard(accounts.lock);
  accounts.byDirectory[directory] = Account{std::move(user), std::move(password), mayReadLogs};
}

void ForgetHostAccount(const std::string& directory)
{
  Accounts& accounts = RegisteredAccounts();
  const std::lock_guard guard(accounts.lock);
  accounts.byDirectory.erase(directory);
}

DWORD CheckLogon(const std::string& directory, std::wstring_view user, std::wstring_view password)
{
  Accounts& accounts = RegisteredAccounts();
  const std::lock_guard guard(accounts.lock);
  const auto found = accounts.byDirectory.find(directory);
  if (found == accounts.byDirectory.end())
    return ERROR_SUCCESS;
  if (!SameUser(user, found->second.user) || password != found->second.password)
    return ERROR_LOGON_FAILURE;
  return found->second.mayReadLogs ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
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

#include "UserPool.h"

#include <algorithm>

namespace collector::ni::impl
{
namespace
{
// Splits at `separator` only when it occurs exactly once, i.e. the name has exactly two parts.
bool SplitOnce(std::wstring_view name, wchar_t separator, std::wstring_view& first, std::wstring_view& second)
{
  if (std::count(name.begin(), name.end(), separator) != 1)
    return false;
  const auto position = name.find(separator);
  first = name.substr(0, position);
  second = name.substr(position + 1);
  return true;
}
} // namespace

SAccountName SplitAccountName(std::wstring_view name)
{
  std::wstring_view first;
  std::wstring_view second;
  if (SplitOnce(name, L'\\', first, second))
    return {tstring(first), tstring(second)};
  if (SplitOnce(name, L'@', first, second))
    return {tstring(second), tstring(first)};
  return {tstring(), tstring(name)};
}

// Name then password, as in IUserPool::Create.
// NOLINTNEXTLINE(bugprone-easily-swappable-parameters)
CUser::CUser(const GUID& id, std::wstring_view name, std::wstring_view password)
  : m_id(id), m_name(name), m_password(password)
{
  auto parts = SplitAccountName(name);
  m_domain = std::move(parts.Domain);
  m_userName = std::move(parts.UserName);
}

std::shared_ptr<IUser> CUserPool::Create(std::wstring_view name, std::wstring_view password)
{
  GUID id{};
  // As for hosts, the status of UuidCreate is not checked.
  UuidCreate(&id);
  return Add(std::make_shared<CUser>(id, name, password));
}

std::shared_ptr<IUser> CUserPool::CreateDefault(std::wstring_view name, std::wstring_view password)
{
  return Add(std::make_shared<CUser>(GUID_NULL, name, password));
}

std::shared_ptr<IUser> CUserPool::Get(GUID id)
{
  return CPoolBase<CUser>::Get(id);
}

std::vector<std::shared_ptr<IUser>> CUserPool::GetAll()
{
  // One copy under the lock, then one allocation of exactly its size.
  const std::vector<std::shared_ptr<CUser>> users = Snapshot();
  return {users.begin(), users.end()};
}
} // namespace collector::ni::impl

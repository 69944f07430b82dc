#include "PlatformMi/Monitor.h"

#include "Cim/Names.h"

namespace platform::mi
{
Monitor& Monitor::Instance()
{
  static Monitor monitor;
  return monitor;
}

Monitor::Counts Monitor::Live() const
{
  Counts counts;
  counts.applications = applications.load();
  counts.sessions = sessions.load();
  counts.destinationOptions = destinationOptions.load();
  counts.operations = operations.load();
  return counts;
}

std::optional<OptionsRecord> Monitor::LastOptions() const
{
  std::lock_guard lock(m_lock);
  if (!m_lastOptions)
    return std::nullopt;
  return *m_lastOptions;
}

std::optional<SessionRecord> Monitor::LastSession() const
{
  std::lock_guard lock(m_lock);
  if (!m_lastSession)
    return std::nullopt;
  return *m_lastSession;
}

std::optional<OperationRecord> Monitor::LastOperation() const
{
  std::lock_guard lock(m_lock);
  if (m_operations.empty())
    return std::nullopt;
  return *m_operations.back();
}

std::vector<OperationRecord> Monitor::Operations() const
{
  std::lock_guard lock(m_lock);
  std::vector<OperationRecord> records;
  records.reserve(m_operations.size());
  for (const auto& record : m_operations)
    records.push_back(*record);
  return records;
}

void Monitor::ClearHistory()
{
  std::lock_guard lock(m_lock);
  m_lastOptions.reset();
  m_lastSession.reset();
  m_operations.clear();
}

void Monitor::SetFault(Call call, std::uint32_t code)
{
  std::lock_guard lock(m_lock);
  m_faults[call] = code;
}

void Monitor::ClearFault(Call call)
{
  std::lock_guard lock(m_lock);
  m_faults.erase(call);
}

std::uint32_t Monitor::Fault(Call call) const
{
  std::lock_guard lock(m_lock);
  const auto found = m_faults.find(call);
  return found == m_faults.end() ? 0 : found->second;
}

void Monitor::Refuse(std::wstring_view destination, std::uint32_t code)
{
  std::lock_guard lock(m_lock);
  m_refusals[cim::ToLower(destination)] = code;
}

void Monitor::Unrefuse(std::wstring_view destination)
{
  std::lock_guard lock(m_lock);
  m_refusals.erase(cim::ToLower(destination));
}

std::uint32_t Monitor::Refusal(std::wstring_view destination) const
{
  const auto key = cim::ToLower(destination);
  std::lock_guard lock(m_lock);
  const auto found = m_refusals.find(key);
  return found == m_refusals.end() ? 0 : found->second;
}

void Monitor::RequireCredentials(std::wstring_view destination, Credentials expected)
{
  std::lock_guard lock(m_lock);
  m_required[cim::ToLower(destination)] = std::move(expected);
}

void Monitor::ClearCredentialRequirement(std::wstring_view destination)
{
  std::lock_guard lock(m_lock);
  m_required.erase(cim::ToLower(destination));
}

bool Monitor::CredentialsAccepted(std::wstring_view destination, const std::vector<Credentials>& given) const
{
  const auto key = cim::ToLower(destination);
  std::lock_guard lock(m_lock);
  const auto found = m_required.find(key);
  if (found == m_required.end())
    return true;
  const Credentials& expected = found->second;
  for (const Credentials& credentials : given)
    if (cim::EqualsNoCase(credentials.domain, expected.domain) && cim::EqualsNoCase(credentials.user, expected.user) &&
        credentials.password == expected.password)
      return true;
  return false;
}

std::shared_ptr<OptionsRecord> Monitor::OptionsCreated()
{
  auto record = std::make_shared<OptionsRecord>();
  std::lock_guard lock(m_lock);
  m_lastOptions = record;
  return record;
}

std::shared_ptr<SessionRecord> Monitor::SessionCreated()
{
  auto record = std::make_shared<SessionRecord>();
  std::lock_guard lock(m_lock);
  m_lastSession = record;
  return record;
}

std::shared_ptr<OperationRecord> Monitor::OperationStarted()
{
  auto record = std::make_shared<OperationRecord>();
  std::lock_guard lock(m_lock);
  m_operations.push_back(record);
  while (m_operations.size() > kHistory)
    m_operations.pop_front();
  return record;
}
} // namespace platform::mi

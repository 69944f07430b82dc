// What the Linux MI API did, and the failures it is told to produce: the seam that tests use
// (through cim_testing) to check how MI clients drive the API, without a Windows machine.
//   auto& monitor = platform::mi::Monitor::Instance();
//   monitor.Live().operations;               // handles open right now
//   monitor.LastOptions()->credentials;       // what the last destination options carried
//   monitor.SetFault(Call::NewSession, 2);    // the next NewSession calls fail with 2
// Recording costs one short lock per handle event; histories are bounded.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::mi
{
enum class Call
{
  Initialize,            // MI_Application_InitializeV1
  NewDestinationOptions, // MI_Application_NewDestinationOptions
  NewSession,            // MI_Application_NewSession
  QueryInstances,        // MI_Session_QueryInstances: the operation comes back closed
};

struct Credentials
{
  std::wstring optionName;
  std::wstring authenticationType;
  std::wstring domain;
  std::wstring user;
  std::wstring password;
};

struct OptionsRecord
{
  std::optional<std::uint32_t> packetPrivacy; // "__MI_DESTINATIONOPTIONS_PACKET_PRIVACY"
  std::map<std::wstring, std::uint32_t> numbers;
  std::vector<Credentials> credentials;
  bool deleted = false;
};

struct SessionRecord
{
  std::optional<std::wstring> protocol;    // nullopt: the caller passed a null protocol
  std::optional<std::wstring> destination; // nullopt: null destination (this machine)
  bool hadOptions = false;
  std::optional<std::uint32_t> packetPrivacy;
  std::vector<Credentials> credentials;
  std::uint32_t result = 0; // what NewSession returned
  bool closed = false;
};

struct OperationRecord
{
  std::wstring nameSpace;
  std::wstring dialect;
  std::wstring query;
  std::size_t pulls = 0;     // MI_Operation_GetInstance calls
  std::size_t delivered = 0; // instances handed out
  bool cancelled = false;
  bool drained = false;      // the final result (moreResults false) was handed out
  bool closed = false;
  std::uint32_t finalResult = 0;
};

class Monitor
{
public:
  static Monitor& Instance();

  struct Counts
  {
    long applications = 0;
    long sessions = 0;
    long destinationOptions = 0;
    long operations = 0;
  };
  Counts Live() const;

  std::optional<OptionsRecord> LastOptions() const;
  std::optional<SessionRecord> LastSession() const;
  std::optional<OperationRecord> LastOperation() const;
  std::vector<OperationRecord> Operations() const; // oldest first, at most kHistory
  static constexpr std::size_t kHistory = 64;
  void ClearHistory();

  // Failures on demand; each stays until cleared.
  void SetFault(Call call, std::uint32_t code);
  void ClearFault(Call call);
  std::uint32_t Fault(Call call) const;
  // NewSession to this destination (case-insensitive) fails with the code.
  void Refuse(std::wstring_view destination, std::uint32_t code);
  void Unrefuse(std::wstring_view destination);
  std::uint32_t Refusal(std::wstring_view destination) const;
  // Operations of sessions to this destination fail with MI_RESULT_ACCESS_DENIED unless the
  // session carries exactly these destination credentials.
  void RequireCredentials(std::wstring_view destination, Credentials expected);
  void ClearCredentialRequirement(std::wstring_view destination);
  bool CredentialsAccepted(std::wstring_view destination, const std::vector<Credentials>& given) const;

  // Used by the API bodies.
  std::shared_ptr<OptionsRecord> OptionsCreated();
  std::shared_ptr<SessionRecord> SessionCreated();
  std::shared_ptr<OperationRecord> OperationStarted();
  template <class Change>
  void Update(Change&& change)
  {
    std::lock_guard lock(m_lock);
    change();
  }
  std::atomic<long> applications{0};
  std::atomic<long> sessions{0};
  std::atomic<long> destinationOptions{0};
  std::atomic<long> operations{0};

private:
  Monitor() = default;

  mutable std::mutex m_lock;
  std::shared_ptr<OptionsRecord> m_lastOptions;
  std::shared_ptr<SessionRecord> m_lastSession;
  std::deque<std::shared_ptr<OperationRecord>> m_operations;
  std::map<Call, std::uint32_t> m_faults;
  std::map<std::wstring, std::uint32_t, std::less<>> m_refusals;
  std::map<std::wstring, Credentials, std::less<>> m_required;
};
} // namespace platform::mi

#include "Task.h"

#include "KeldaKernel/Exceptions.h"
#include "Platform/Windows.h"

#include <cstring>
#include <fmt/xchar.h>
#include <utility>

// Each collection type is wired in as soon as its sources are part of the library (CMake
// defines NATC_HAS_..._COLLECTION when they are).
#if defined(NATC_HAS_EVENT_COLLECTION)
#  include "EventCollection.h"
#endif
#if defined(NATC_HAS_MI_COLLECTION) || defined(NATC_HAS_PERF_COLLECTION)
#  include "MiApplication.h"
#endif
#if defined(NATC_HAS_MI_COLLECTION)
#  include "MiCollection.h"
#endif
#if defined(NATC_HAS_PERF_COLLECTION)
#  include "MiPerformanceCollection.h"
#  include "PerfTargetCollectoin.h"
#endif

namespace collector::ni::impl
{
namespace
{
tstring GuidText(const GUID& id)
{
  wchar_t text[39] = {};
  StringFromGUID2(id, text, 39);
  return text;
}

#if defined(NATC_HAS_MI_COLLECTION) || defined(NATC_HAS_PERF_COLLECTION)
// One MI application for every MI collection of a collector: the MI client context is meant to
// be made once per process and shared by its sessions. It is made on the first update of an MI
// collection, so a collector that reads only event logs never initialises MI, and a system
// without MI fails that update (state Error) rather than the collection's creation.
class CSharedMiApplication
{
public:
  std::shared_ptr<CMiApplication> Get()
  {
    const std::lock_guard lock(m_lock);
    if (!m_application)
    {
      m_application = CMiApplication::CreateInstance();
    }
    return m_application;
  }

private:
  std::mutex m_lock;
  std::shared_ptr<CMiApplication> m_application;
};
#endif
} // namespace

std::shared_ptr<CCollectionFactory> CCollectionFactory::BuiltIn()
{
  auto factory = std::make_shared<CCollectionFactory>();
#if defined(NATC_HAS_EVENT_COLLECTION)
  factory->Add(L"WindowsEvents", [](const SCollectionParts& parts) {
    return SMadeCollection{std::make_shared<CEventCollection>(parts.log, parts.threadPool, parts.token, parts.host,
                                                              parts.user, parts.cls),
                           {}};
  });
#endif
#if defined(NATC_HAS_MI_COLLECTION) || defined(NATC_HAS_PERF_COLLECTION)
  auto application = std::make_shared<CSharedMiApplication>();
#endif
#if defined(NATC_HAS_MI_COLLECTION)
  factory->Add(L"MiProp", [application](const SCollectionParts& parts) {
    auto collection =
      std::make_shared<MiCollection>(parts.log, parts.threadPool, parts.token, parts.host, parts.user, parts.cls);
    collection->SetApplicationSource([application] { return application->Get(); });
    return SMadeCollection{std::move(collection), {}};
  });
#endif
#if defined(NATC_HAS_PERF_COLLECTION)
  factory->Add(L"MiPerf", [application](const SCollectionParts& parts) {
    // Every performance collection numbers its own targets.
    auto targets = std::make_shared<CPerfTargetCollection>();
    auto collection = std::make_shared<CMiPerformanceCollection>(parts.log, parts.threadPool, parts.token,
                                                                 parts.host, parts.user, parts.cls, targets);
    collection->SetApplicationSource([application] { return application->Get(); });
    return SMadeCollection{std::move(collection), {std::move(targets)}};
  });
#endif
  return factory;
}

void CCollectionFactory::Add(std::wstring type, Maker maker)
{
  m_makers.insert_or_assign(std::move(type), std::move(maker));
}

const CCollectionFactory::Maker* CCollectionFactory::Find(std::wstring_view type) const
{
  const auto position = m_makers.find(type);
  return position == m_makers.end() ? nullptr : &position->second;
}

// The pool handle is taken by value: every task keeps its own copy of it.
CTask::CTask(std::shared_ptr<CLog> log, pool threadPool, // NOLINT(performance-unnecessary-value-param)
             std::shared_ptr<ICancellationToken> token, std::shared_ptr<IHost> host, std::shared_ptr<IUser> user,
             std::shared_ptr<CClassPool> classPool, const std::shared_ptr<CUserPool>& userPool,
             std::shared_ptr<const CCollectionFactory> factory)
  : m_log(std::move(log)),
    m_pool(threadPool),
    m_cancellation(std::move(token)),
    m_host(std::move(host)),
    m_user(std::move(user)),
    m_classPool(std::move(classPool)),
    m_userPool(userPool),
    m_factory(std::move(factory))
{
  const RPC_STATUS status = UuidCreate(&m_id);
  if (status != RPC_S_OK)
  {
    KELDA_THROW(CWin32Exception(static_cast<DWORD>(status)));
  }
}

// Collections are released, not stopped: whoever still holds one keeps it running.
CTask::~CTask() = default;

std::shared_ptr<ICollection> CTask::CreateCollection(std::wstring_view type)
{
  // Whatever the outcome (an unknown type, a failing maker), the task has seen a creation.
  struct CMarkCreated
  {
    std::atomic<int>& state;
    ~CMarkCreated() { state.store(CollectionCreated); }
  } const markCreated{m_state};

  const CCollectionFactory::Maker* maker = m_factory ? m_factory->Find(type) : nullptr;
  if (maker == nullptr)
  {
    return {};
  }
  const std::lock_guard switching(m_switchLock);
  GUID id{};
  // Not checked: a failed UuidCreate still leaves a usable identifier.
  UuidCreate(&id);
  std::shared_ptr<IClass> cls = m_classPool->Create(id, type);
  SMadeCollection made;
  try
  {
    made = (*maker)(
      SCollectionParts{m_log, m_pool, create_child_cancellation(m_cancellation), cls, m_host, currentUser()});
  }
  catch (...)
  {
    // Nothing of a failed creation stays behind.
    m_classPool->Remove(id);
    throw;
  }
  if (!made.collection)
  {
    m_classPool->Remove(id);
    return {};
  }
  // The collection is filed under the identifier its class was registered under; GetCollection
  // and RemoveCollection also accept the collection's own identifier (GetId).
  {
    const std::lock_guard lock(m_companionLock);
    for (auto& companion : made.companions)
    {
      if (companion)
      {
        const GUID companionId = companion->GetId();
        m_companions.insert_or_assign(companionId, SCompanion{id, std::move(companion)});
      }
    }
  }
  return AddUnder(id, std::move(made.collection));
}

std::pair<GUID, std::shared_ptr<ICollection>> CTask::findCollection(const GUID& id) const
{
  if (auto collection = CPoolBase<ICollection>::Get(id))
  {
    return {id, std::move(collection)};
  }
  return FindIf([&id](const ICollection& collection) {
    const GUID own = collection.GetId();
    return std::memcmp(&own, &id, sizeof(GUID)) == 0;
  });
}

void CTask::RemoveCollection(GUID id)
{
  const auto [key, collection] = findCollection(id);
  if (!collection)
  {
    return;
  }
  // The class pool's lock is taken first and on its own; the task's lock only afterwards.
  if (const std::shared_ptr<IClass> cls = collection->GetClass())
  {
    m_classPool->Remove(cls->GetId());
  }
  Erase(key);
  std::vector<std::shared_ptr<ICollection>> released;
  {
    const std::lock_guard lock(m_companionLock);
    for (auto position = m_companions.begin(); position != m_companions.end();)
    {
      if (std::memcmp(&position->second.owner, &key, sizeof(GUID)) == 0)
      {
        released.push_back(std::move(position->second.collection));
        position = m_companions.erase(position);
      }
      else
      {
        ++position;
      }
    }
  }
}

std::shared_ptr<ICollection> CTask::GetCollection(GUID id)
{
  if (auto collection = findCollection(id).second)
  {
    return collection;
  }
  const std::lock_guard lock(m_companionLock);
  const auto position = m_companions.find(id);
  return position == m_companions.end() ? nullptr : position->second.collection;
}

GUID CTask::GetHostId() const
{
  return m_host ? m_host->GetId() : GUID_NULL;
}

GUID CTask::GetUserId() const
{
  const std::shared_ptr<IUser> user = currentUser();
  return user ? user->GetId() : GUID_NULL;
}

std::shared_ptr<IUser> CTask::currentUser() const
{
  const std::lock_guard lock(m_userLock);
  return m_user;
}

GUID CTask::SwitchUser(GUID userId)
{
  const std::shared_ptr<CUserPool> userPool = m_userPool.lock();
  if (!userPool)
  {
    KELDA_THROW(CKeldaException(L"UserPool is expired"));
  }
  const std::lock_guard switching(m_switchLock);
  const GUID previous = GetUserId();
  std::shared_ptr<IUser> user = userPool->Get(userId);
  if (!user)
  {
    KELDA_THROW(CKeldaException(fmt::format(L"User {} not found", GuidText(userId))));
  }
  {
    const std::lock_guard lock(m_userLock);
    m_user = user;
  }
  for (const auto& collection : Snapshot())
  {
    collection->SetUser(user);
  }
  return previous;
}

void CTask::Cancel()
{
  m_state.store(Cancelled);
  if (const auto cancellation = m_cancellation->get_cancellation())
  {
    cancellation->cancel();
  }
  // With the token cancelled, a running update stops at its next interruption point and a
  // scheduled one ends as soon as it starts; the stop without waiting ends the schedule at once.
  for (const auto& collection : Snapshot())
  {
    collection->Stop(false);
  }
}

void CTask::Stop(bool sync)
{
  m_state.store(Stopping);
  m_cancellation->stop(sync);
  for (const auto& collection : Snapshot())
  {
    collection->Stop(sync);
  }
  m_state.store(Stopped);
}
} // namespace collector::ni::impl

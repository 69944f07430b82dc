#include "MiCollectionBase.h"

#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IUser.h"
#include "KeldaKernel/Exceptions.h"

#include <mutex>
#include <utility>

namespace collector::ni::impl
{
MiCollectionBase::MiCollectionBase(const std::shared_ptr<CLog>& log, const pool& threadPool,
                                   const std::shared_ptr<ICancellationToken>& token,
                                   const std::shared_ptr<IHost>& host, const std::shared_ptr<IUser>& user,
                                   const std::shared_ptr<IClass>& cls)
  : CCollectionBase(log, threadPool, token, host, user, cls)
{
}

MiCollectionBase::~MiCollectionBase()
{
  // The session goes before the application it was made from.
  m_session.store(nullptr);
  m_application.reset();
}

void MiCollectionBase::SetUser(const std::shared_ptr<IUser>& user)
{
  CCollectionBase::SetUser(user);
  std::shared_ptr<CMiSession> dropped;
  {
    const std::lock_guard guard(m_sessionLock);
    dropped = m_session.exchange(nullptr);
  }
  // `dropped` closes here, outside the lock, when no update holds it any more.
}

void MiCollectionBase::SetApplication(std::shared_ptr<CMiApplication> application)
{
  const std::lock_guard guard(m_sessionLock);
  m_application = std::move(application);
}

void MiCollectionBase::SetApplicationSource(std::function<std::shared_ptr<CMiApplication>()> source)
{
  const std::lock_guard guard(m_sessionLock);
  m_applicationSource = std::move(source);
}

std::shared_ptr<CMiSession> MiCollectionBase::getSession()
{
  if (auto cached = m_session.load())
  {
    return cached;
  }
  const std::lock_guard guard(m_sessionLock);
  if (auto cached = m_session.load())
  {
    return cached;
  }
  const std::shared_ptr<IUser> currentUser = user();
  if (!currentUser)
  {
    KELDA_THROW(CKeldaException(L"User is unset"));
  }
  const std::shared_ptr<IHost> currentHost = host();
  if (!currentHost)
  {
    KELDA_THROW(CKeldaException(L"Host is unset"));
  }
  if (!m_application && m_applicationSource)
  {
    m_application = m_applicationSource();
  }
  auto session = std::make_shared<CMiSession>(m_application);
  m_session.store(session);
  const tstring password = currentUser->GetPassword();
  const tstring userName = currentUser->GetUserName();
  const tstring domain = currentUser->GetDomain();
  const tstring hostName = currentHost->GetName();
  try
  {
    session->Connect(hostName, domain, userName, password);
  }
  catch (...)
  {
    m_session.store(nullptr);
    throw;
  }
  return session;
}
} // namespace collector::ni::impl

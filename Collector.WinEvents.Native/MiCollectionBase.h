// Common base of the collections that read through MI ("MiProp", "MiPerf"): one cached MI
// session to the collection's host under its current user, made on first use and dropped when
// the user changes. Derived collections call getSession() in updateImpl; the task sets the
// application through IMiCollectionBaseInit before the collection runs.
//   auto session = getSession();   // throws "User is unset", "Host is unset" or CMiException
#pragma once

#include "CollectionBase.h"
#include "MiClient/MiSession.h"
#include "SharedSlot.h"

#include "Collector/Interfaces/Impl/CriticalSection.h"
#include "Collector/Interfaces/MiInit.h"

#include <functional>
#include <memory>

namespace collector::ni::impl
{
class MiCollectionBase : public CCollectionBase, public mi::IMiCollectionBaseInit
{
public:
  MiCollectionBase(const std::shared_ptr<CLog>& log, const pool& threadPool,
                   const std::shared_ptr<ICancellationToken>& token, const std::shared_ptr<IHost>& host,
                   const std::shared_ptr<IUser>& user, const std::shared_ptr<IClass>& cls);
  ~MiCollectionBase() override;

  // Also drops the cached session, so that the next update connects with the new credentials;
  // a session already handed out stays valid for its holder.
  void SetUser(const std::shared_ptr<IUser>& user) override;
  void SetApplication(std::shared_ptr<CMiApplication> application) override;
  // Where the first update takes the application from when none was set: the collector's shared
  // one, whose creation throws MI's reason where MI is missing (no mi.dll), so that the update,
  // not the collection's creation, fails with it.
  void SetApplicationSource(std::function<std::shared_ptr<CMiApplication>()> source);

protected:
  // The cached session, connected on first use. A failed connect is not kept: the next update
  // tries again (a host that was down is reached once it is back).
  std::shared_ptr<CMiSession> getSession();

private:
  std::shared_ptr<CMiApplication> m_application;
  std::function<std::shared_ptr<CMiApplication>()> m_applicationSource;
  CCriticalSection m_sessionLock;
  // Read without m_sessionLock on the fast path; replaced under it.
  CSharedSlot<CMiSession> m_session;
};
} // namespace collector::ni::impl

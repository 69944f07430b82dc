// The top object returned by collector::win_events::create_collector: hands out the four pools
// and cancels or stops everything deployed through them.
#pragma once

#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IObject.h"
#include "Collector/Interfaces/ITask.h"
#include "Collector/Interfaces/IUser.h"

#include <memory>

namespace collector::ni
{
class ICollector : public IObject
{
public:
  virtual std::shared_ptr<IHostPool> GetHostPool() = 0;
  virtual std::shared_ptr<IUserPool> GetUserPool() = 0;
  virtual std::shared_ptr<ITaskPool> GetTaskPool() = 0;
  virtual std::shared_ptr<IClassPool> GetClassPool() = 0;
  virtual void Cancel() = 0;
  virtual void Stop(bool sync) = 0;
  // Part of the interface without an implementation: always throws E_NOTIMPL.
  virtual int GetState() = 0;
};
} // namespace collector::ni

// A task binds one host to one user and owns the collections that run with them; the task pool
// deploys, finds and removes tasks.
// Usage: auto task = taskPool->Deploy(L"name", hostId, userId);
//        auto events = task->CreateCollection(L"WindowsEvents");  // empty for an unknown type
#pragma once

#include "Collector/Interfaces/IObject.h"
#include "Platform/Windows.h"

#include <memory>
#include <string_view>

namespace collector::ni
{
// Declared with the collection life cycle; tasks only hand collections around.
class ICollection;

class ITask : public IObject
{
public:
  virtual GUID GetId() const = 0;
  // "WindowsEvents", "MiProp" or "MiPerf" (exact, case-sensitive); empty pointer otherwise.
  virtual std::shared_ptr<ICollection> CreateCollection(std::wstring_view type) = 0;
  // Removes the collection and its class; an unknown identifier is ignored.
  virtual void RemoveCollection(GUID id) = 0;
  virtual std::shared_ptr<ICollection> GetCollection(GUID id) = 0;
  virtual int GetState() const = 0;
  virtual GUID GetHostId() const = 0;
  virtual GUID GetUserId() const = 0;
  // Switches every collection to another user of the user pool; returns the previous user's id.
  virtual GUID SwitchUser(GUID userId) = 0;
  virtual void Cancel() = 0;
  virtual void Stop(bool sync) = 0;
};

class ITaskPool : public IObject
{
public:
  // Resolves host and user (E_INVALIDARG when either is unknown), makes and adds a task.
  virtual std::shared_ptr<ITask> Deploy(std::wstring_view name, GUID hostId, GUID userId) = 0;
  // The task, or an empty pointer.
  virtual std::shared_ptr<ITask> Get(GUID id) = 0;
  // Forgets the task; an unknown identifier is ignored. Its collections keep running.
  virtual void Remove(GUID id) = 0;
};
} // namespace collector::ni

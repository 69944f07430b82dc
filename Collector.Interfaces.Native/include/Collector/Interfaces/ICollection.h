// A collection: one kind of data gathered periodically from one host. The caller subscribes an
// ICollectionTypes::ISubscriber, configures the collection through its init interface, calls
// Run, and receives new records (OnRecords) and every change of the public state
// (OnStateChanged) until Stop.
#pragma once

#include "Collector/Interfaces/IObject.h"
#include "KeldaKernel/Observer.h"
#include "KeldaKernel/Strings.h"
#include "Platform/Windows.h"

#include <cstdint>
#include <memory>
#include <span>

namespace collector::ni
{
class IClass;
class IUser;
class IRecord;

// Types shared by a collection and its subscribers.
class ICollectionTypes : public IObject
{
public:
  enum States : std::int32_t
  {
    Error = 1,
    Starting = 2,
    Running = 3,
    Stopping = 4,
    Stopped = 5,
  };

  // A state change as subscribers see it: the new state and the message that came with it.
  class IState : public IObject
  {
  public:
    virtual States GetState() const = 0;
    virtual tstring GetDescription() const = 0;
  };

  // The records of one notification. A span over shared pointers lets the event collection hand
  // over a single record without building a vector and MI collections a whole batch; every
  // subscriber sees the same records (nothing is copied per subscriber) and may keep a reference.
  // A record is not thread-safe: lock it, or Detach() a copy, to share it between threads.
  using Records = std::span<const std::shared_ptr<IRecord>>;

  // The callback interface registered on a collection. The library calls OnRecords and
  // OnStateChanged only; the three operations between them keep their places in the table of
  // virtual operations for callers built against it and do nothing by default.
  class ISubscriber : public IKeldaSubscriber
  {
  public:
    virtual void OnRecords(const GUID& collectionId, Records records) = 0;
    virtual void OnReserved1() {}
    virtual void OnReserved2() {}
    virtual void OnReserved3() {}
    virtual void OnStateChanged(const GUID& collectionId, const IState& state) = 0;
  };
};

class ICollection : public ICollectionTypes, public CKeldaObserver<ICollectionTypes::ISubscriber>
{
public:
  ~ICollection() override = default;
  virtual GUID GetId() const = 0;
  virtual tstring GetName() const = 0;
  virtual States GetState() const = 0;
  virtual std::shared_ptr<IClass> GetClass() const = 0;
  // The user to connect with from the next connection on; safe while updates run.
  virtual void SetUser(const std::shared_ptr<IUser>& user) = 0;
  virtual void Run() = 0;
  // Stops the schedule; with `sync` also waits for a running update to end. Never throws.
  virtual void Stop(bool sync) = 0;

protected:
  // One collection pass, on a pool thread. Stops at interruption points when cancelled and
  // reports failure by throwing.
  virtual void updateImpl() = 0;
};

// Configuration common to every collection, set before Run.
class ICollectionInit
{
public:
  virtual ~ICollectionInit() = default;
  // Time between the starts of two updates, in seconds.
  virtual void SetUpdatePeriod(int seconds) = 0;
};
} // namespace collector::ni

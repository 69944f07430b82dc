// The performance targets of a "MiPerf" collection: one per (class, counter, instance) that the
// collection has reported, each with a running number that the counter records carry in their
// field "id". At the end of every update of a performance collection it tells its own
// subscribers which targets appeared and which disappeared, as keyed records whose record type
// is the operation code (1 added, 3 removed) and whose fields are "c" (the configured target
// value), "ins" (the instance, empty for "_Total") and "id" (the number, also the key).
// It is a collection without a schedule of its own: subscribe to it like any collection; Run,
// Stop and SetUser do nothing, its name is empty and it has no class.
//   auto targets = std::make_shared<CPerfTargetCollection>();
//   targets->Subscribe(subscriber);
//   auto id = targets->GetOrAddTarget({instance, counter, className}, targetValue);
//   targets->EndUpdateAndNotify();
// Thread-safe: updates report to it from pool threads while callers subscribe. When several
// performance collections share one, each one's EndUpdateAndNotify ends the targets that its own
// update did not report, including the other collections' targets: give each its own.
#pragma once

#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/ICollection.h"
#include "Collector/Interfaces/IRecord.h"
#include "KeldaKernel/Strings.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace collector::ni::impl
{
class CPerfTargetCollection : public ICollection
{
public:
  // The record type of a target record: what happened to the target in the update.
  enum Operation : std::uint32_t
  {
    TargetAdded = 1,
    // Reserved for a target whose data changed; never produced here.
    TargetChanged = 2,
    TargetRemoved = 3,
  };

  struct TargetIdentity
  {
    tstring instance;
    tstring counter;
    tstring className;
  };

  // The same three names without copies, for lookups.
  struct TargetIdentityView
  {
    std::wstring_view instance;
    std::wstring_view counter;
    std::wstring_view className;
  };

  // Class first, then counter, then instance; each ordinal over the code units, a prefix first.
  struct TargetIdentityComparer
  {
    using is_transparent = void;
    bool operator()(const TargetIdentity& left, const TargetIdentity& right) const noexcept
    {
      return less(view(left), view(right));
    }
    bool operator()(const TargetIdentity& left, const TargetIdentityView& right) const noexcept
    {
      return less(view(left), right);
    }
    bool operator()(const TargetIdentityView& left, const TargetIdentity& right) const noexcept
    {
      return less(left, view(right));
    }
    static TargetIdentityView view(const TargetIdentity& identity) noexcept
    {
      return {identity.instance, identity.counter, identity.className};
    }
    static bool less(const TargetIdentityView& left, const TargetIdentityView& right) noexcept;
  };

  struct TargetData
  {
    std::uint64_t number = 0;
    std::uint64_t stamp = 0;
    FieldValue targetValue;
  };

  // One change of an update, as reported to the subscribers.
  struct TargetChange
  {
    Operation operation = TargetAdded;
    TargetIdentity identity;
    TargetData data;
  };

  using TargetMap = std::map<TargetIdentity, TargetData, TargetIdentityComparer>;

  // The identifier comes from UuidCreate; its failure throws CWin32Exception.
  CPerfTargetCollection();
  ~CPerfTargetCollection() override = default;
  CPerfTargetCollection(const CPerfTargetCollection&) = delete;
  CPerfTargetCollection& operator=(const CPerfTargetCollection&) = delete;

  GUID GetId() const override;
  // Empty: the target collection is not registered as a class of the task.
  tstring GetName() const override;
  // Always Running: it delivers whenever a performance collection ends an update.
  States GetState() const override;
  std::shared_ptr<IClass> GetClass() const override;
  void SetUser(const std::shared_ptr<IUser>& user) override;
  void Run() override;
  void Stop(bool sync) override;

  // The target's number: a known target is marked as reported in this update; a new one gets
  // the next number (the first is 1; numbers are never reused) and is listed as added.
  std::uint64_t GetOrAddTarget(const TargetIdentityView& identity, const FieldValue& targetValue);
  // Ends the update: forgets the targets it did not report and returns the added ones (in
  // order of addition) followed by the removed ones (in target order).
  std::vector<TargetChange> EndUpdate();
  // EndUpdate, then hands one record per change to every subscriber in one batch.
  void EndUpdateAndNotify();

  // The record of one change (keyed by its "id" field; record type = operation code).
  static std::shared_ptr<IRecord> MakeTargetRecord(const TargetChange& change);
  // The name reported in "ins": empty for "_Total" in any case, else the name itself.
  static std::wstring_view ReportedInstanceName(std::wstring_view instance) noexcept;

  // Snapshot of the live targets, for inspection.
  TargetMap Targets() const;
  std::uint64_t NumbersGiven() const;

protected:
  void updateImpl() override {}

private:
  GUID m_id{};
  mutable std::mutex m_lock;
  std::uint64_t m_numbersGiven = 0;
  // Advanced by every EndUpdate, so each update marks its targets with a stamp of its own.
  std::uint64_t m_stamp = 1;
  TargetMap m_targets;
  std::vector<TargetChange> m_added;
};
} // namespace collector::ni::impl

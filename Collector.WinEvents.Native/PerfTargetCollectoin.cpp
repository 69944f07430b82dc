#include "PerfTargetCollectoin.h"

#include "Collector.Interfaces.Impl.h"
#include "KeldaKernel/Exceptions.h"

#include <utility>

namespace collector::ni::impl
{
namespace
{
struct STargetFieldNames
{
  std::shared_ptr<tstring> Value = MakeFieldName(L"c");
  std::shared_ptr<tstring> Instance = MakeFieldName(L"ins");
  std::shared_ptr<tstring> Id = MakeFieldName(L"id");
};

const STargetFieldNames& TargetFieldNames()
{
  static const STargetFieldNames names;
  return names;
}

int compareOrdinal(std::wstring_view left, std::wstring_view right) noexcept
{
  return left.compare(right);
}
} // namespace

bool CPerfTargetCollection::TargetIdentityComparer::less(const TargetIdentityView& left,
                                                         const TargetIdentityView& right) noexcept
{
  if (const int byClass = compareOrdinal(left.className, right.className); byClass != 0)
    return byClass < 0;
  if (const int byCounter = compareOrdinal(left.counter, right.counter); byCounter != 0)
    return byCounter < 0;
  return compareOrdinal(left.instance, right.instance) < 0;
}

CPerfTargetCollection::CPerfTargetCollection()
{
  if (UuidCreate(&m_id) != RPC_S_OK)
    KELDA_THROW(CWin32Exception(GetLastError()));
}

GUID CPerfTargetCollection::GetId() const
{
  return m_id;
}

tstring CPerfTargetCollection::GetName() const
{
  return {};
}

ICollectionTypes::States CPerfTargetCollection::GetState() const
{
  return Running;
}

std::shared_ptr<IClass> CPerfTargetCollection::GetClass() const
{
  return {};
}

void CPerfTargetCollection::SetUser(const std::shared_ptr<IUser>& /*user*/)
{
  // Reads nothing from any host: there is no connection to renew.
}

void CPerfTargetCollection::Run()
{
  // Driven by the performance collections' updates; nothing to schedule.
}

void CPerfTargetCollection::Stop(bool /*sync*/)
{
}

std::uint64_t CPerfTargetCollection::GetOrAddTarget(const TargetIdentityView& identity, const FieldValue& targetValue)
{
  const std::lock_guard guard(m_lock);
  if (const auto position = m_targets.find(identity); position != m_targets.end())
  {
    position->second.stamp = m_stamp;
    return position->second.number;
  }
  TargetIdentity key{tstring(identity.instance), tstring(identity.counter), tstring(identity.className)};
  TargetData data{++m_numbersGiven, m_stamp, targetValue};
  // The change list is filled before the map so that a failed copy leaves no unlisted target.
  m_added.push_back({TargetAdded, key, data});
  try
  {
    m_targets.emplace(std::move(key), std::move(data));
  }
  catch (...)
  {
    m_added.pop_back();
    throw;
  }
  return m_numbersGiven;
}

std::vector<CPerfTargetCollection::TargetChange> CPerfTargetCollection::EndUpdate()
{
  const std::lock_guard guard(m_lock);
  std::vector<TargetChange> changes = std::move(m_added);
  m_added.clear();
  for (auto position = m_targets.begin(); position != m_targets.end();)
  {
    if (position->second.stamp != m_stamp)
    {
      auto node = m_targets.extract(position++);
      changes.push_back({TargetRemoved, std::move(node.key()), std::move(node.mapped())});
    }
    else
    {
      ++position;
    }
  }
  ++m_stamp;
  return changes;
}

void CPerfTargetCollection::EndUpdateAndNotify()
{
  const std::vector<TargetChange> changes = EndUpdate();
  std::vector<std::shared_ptr<IRecord>> records;
  records.reserve(changes.size());
  for (const auto& change : changes)
    records.push_back(MakeTargetRecord(change));
  const Records batch(records);
  notify([&](IKeldaSubscriber& subscriber) {
    if (auto* typed = dynamic_cast<ISubscriber*>(&subscriber))
      typed->OnRecords(m_id, batch);
    return false;
  });
}

std::wstring_view CPerfTargetCollection::ReportedInstanceName(std::wstring_view instance) noexcept
{
  constexpr std::wstring_view total = L"_Total";
  // Only a name of the same length can match; this also keeps a null view away from the call.
  if (instance.size() != total.size())
    return instance;
  const bool isTotal = CompareStringOrdinal(instance.data(), static_cast<int>(instance.size()), total.data(),
                                            static_cast<int>(total.size()), TRUE) == CSTR_EQUAL;
  return isTotal ? std::wstring_view() : instance;
}

std::shared_ptr<IRecord> CPerfTargetCollection::MakeTargetRecord(const TargetChange& change)
{
  const auto& names = TargetFieldNames();
  const auto number = static_cast<__int64>(change.data.number);
  CKey key({}, {std::make_shared<CField>(names.Id, number)});
  auto record = std::make_shared<CRecordOnVector>(std::move(key), change.operation, 3);
  record->AddField(names.Value, change.data.targetValue);
  record->AddField(names.Instance, ReportedInstanceName(change.identity.instance));
  record->AddField(names.Id, number);
  return record;
}

CPerfTargetCollection::TargetMap CPerfTargetCollection::Targets() const
{
  const std::lock_guard guard(m_lock);
  return m_targets;
}

std::uint64_t CPerfTargetCollection::NumbersGiven() const
{
  const std::lock_guard guard(m_lock);
  return m_numbersGiven;
}
} // namespace collector::ni::impl

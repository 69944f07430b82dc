// Helpers for the event collection tests: a temporary host directory of channel files, a
// collection whose update the test runs on its own thread, a subscriber that keeps every
// record, and readers of record fields. Waits are on conditions, bounded by a generous limit.
#pragma once

#include "EventCollection.h"

#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IUser.h"
#include "Evtx/Writer.h"
#include "TestSupport/TempDirectory.h"
#include "KeldaKernel/Cancellation.h"
#include "Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace events_test
{
using namespace std::chrono_literals;
using collector::ni::ICollectionTypes;
using collector::ni::IRecord;
using collector::ni::impl::CEventCollection;
using collector::ni::impl::SEventLogApi;
using collector::ni::win_events::SFilter;

constexpr auto waitLimit = 30s;

// A directory of channel files that lives as long as the object.
class CTempHost
{
public:
  const std::filesystem::path& Path() const { return m_directory.Path(); }
  // The file of a channel as Windows names it ("A/B" is "A%4B.evtx").
  std::string ChannelFile(std::string channel) const
  {
    for (std::size_t at = channel.find('/'); at != std::string::npos; at = channel.find('/'))
      channel.replace(at, 1, "%4");
    return (Path() / (channel + ".evtx")).string();
  }

private:
  TempDirectory m_directory{"natc-events"};
};

// Appends events numbered first..first+count-1 to a channel file (created when asked).
class CChannelWriter
{
public:
  CChannelWriter(std::string path, std::string channel, bool create = true)
    : m_path(std::move(path)), m_channel(std::move(channel))
  {
    std::string error;
    if (!(create ? m_writer.Create(m_path, &error) : m_writer.Open(m_path, &error)))
      throw std::runtime_error("cannot write " + m_path + ": " + error);
  }

  // Returns the record number given to the event.
  std::uint64_t Append(int index, const std::function<void(evtx::WriterEvent&)>& shape = {})
  {
    evtx::WriterEvent event;
    event.provider = "Natc-Test";
    event.channel = m_channel;
    event.eventId = static_cast<std::uint16_t>(1000 + index % 7);
    event.level = 4;
    event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(index))});
    if (shape)
      shape(event);
    const std::uint64_t id = m_writer.Append(event);
    if (id == 0)
      throw std::runtime_error("append failed");
    return id;
  }

  void AppendMany(int first, int count)
  {
    for (int i = first; i < first + count; ++i)
      Append(i);
  }

private:
  std::string m_path;
  std::string m_channel;
  evtx::Writer m_writer;
};

class CHost : public collector::ni::IHost
{
public:
  explicit CHost(std::wstring name) : m_name(std::move(name)) {}
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return m_name; }

private:
  std::wstring m_name;
};

class CUser : public collector::ni::IUser
{
public:
  CUser(std::wstring domain, std::wstring name, std::wstring password = L"secret")
    : m_domain(std::move(domain)), m_name(std::move(name)), m_password(std::move(password))
  {
  }
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return m_domain + L"\\" + m_name; }
  tstring GetDomain() const override { return m_domain; }
  tstring GetUserName() const override { return m_name; }
  tstring GetPassword() const override { return m_password; }

private:
  std::wstring m_domain;
  std::wstring m_name;
  std::wstring m_password;
};

class CClass : public collector::ni::IClass
{
public:
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return L"WindowsEvents"; }
};

// Keeps every record and state change, in order.
class CCollectingSubscriber : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, ICollectionTypes::Records records) override
  {
    if (onRecord)
      onRecord(records);
    {
      const std::lock_guard lock(m_lock);
      ++m_calls;
      m_records.insert(m_records.end(), records.begin(), records.end());
    }
    m_changed.notify_all();
  }

  void OnStateChanged(const GUID&, const ICollectionTypes::IState& state) override
  {
    {
      const std::lock_guard lock(m_lock);
      m_states.push_back(state.GetState());
      m_descriptions.push_back(state.GetDescription());
    }
    m_changed.notify_all();
  }

  std::vector<std::shared_ptr<IRecord>> Records() const
  {
    const std::lock_guard lock(m_lock);
    return m_records;
  }
  std::size_t Calls() const
  {
    const std::lock_guard lock(m_lock);
    return m_calls;
  }
  std::vector<ICollectionTypes::States> States() const
  {
    const std::lock_guard lock(m_lock);
    return m_states;
  }
  std::vector<std::wstring> Descriptions() const
  {
    const std::lock_guard lock(m_lock);
    return m_descriptions;
  }
  void Clear()
  {
    const std::lock_guard lock(m_lock);
    m_records.clear();
    m_calls = 0;
  }

  // Waits until `state` has been notified `times` times in all.
  bool WaitFor(ICollectionTypes::States state, std::size_t times = 1) const
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] {
      return static_cast<std::size_t>(std::count(m_states.begin(), m_states.end(), state)) >= times;
    });
  }

  // Called on the delivering thread before the record is kept (may throw).
  std::function<void(ICollectionTypes::Records)> onRecord;

private:
  mutable std::mutex m_lock;
  mutable std::condition_variable m_changed;
  std::vector<std::shared_ptr<IRecord>> m_records;
  std::size_t m_calls = 0;
  std::vector<ICollectionTypes::States> m_states;
  std::vector<std::wstring> m_descriptions;
};

// A collection whose passes the test runs itself, on its own thread.
class CTestEventCollection : public CEventCollection
{
public:
  using CEventCollection::CEventCollection;
  void UpdateOnce() { updateImpl(); }
  std::shared_ptr<collector::ni::impl::CRecordOnVector> Create(EVT_HANDLE session, EVT_HANDLE event, tstring& channel,
                                                              __int64& recordId)
  {
    return createRecord(session, event, channel, recordId);
  }
};

// The pieces a task gives a collection.
struct SCollectionParts
{
  std::shared_ptr<CLog> log = std::make_shared<CLog>(nullptr, L"[Test]");
  pool threadPool{2};
  std::shared_ptr<ICancellation> token = create_cancellation();
  std::shared_ptr<collector::ni::IClass> cls = std::make_shared<CClass>();
  std::shared_ptr<collector::ni::IUser> user = std::make_shared<CUser>(L"CORP", L"bob");

  std::shared_ptr<CTestEventCollection> Make(const std::wstring& hostName, const SEventLogApi& api = {})
  {
    return std::make_shared<CTestEventCollection>(log, threadPool, token, std::make_shared<CHost>(hostName), user,
                                                  cls, api);
  }
};

inline std::vector<SFilter> Filters(std::initializer_list<std::wstring> channels)
{
  std::vector<SFilter> filters;
  for (const auto& channel : channels)
    filters.push_back(SFilter{channel, L"", 0, {}});
  return filters;
}

// A collection made of test parts, with a subscriber that keeps what each update delivers.
class CCollectionTest : public testing::Test
{
protected:
  void Start(const std::wstring& hostName, const SEventLogApi& api = {})
  {
    collection = parts.Make(hostName, api);
    subscriber = std::make_shared<CCollectingSubscriber>();
    collection->Subscribe(subscriber);
  }

  void SetChannels(std::initializer_list<std::wstring> channels)
  {
    auto filters = Filters(channels);
    collection->SetFilter(filters);
  }

  SCollectionParts parts;
  std::shared_ptr<CTestEventCollection> collection;
  std::shared_ptr<CCollectingSubscriber> subscriber;
};

// The collection over a directory of written channel files.
class CWrittenLogTest : public CCollectionTest
{
protected:
  void SetUp() override { Start(host.Path().wstring()); }

  CTempHost host;
};

// Field readers: a failed lookup or a value of another kind fails the test.
inline const collector::ni::FieldValue& ValueOf(IRecord& record, std::wstring_view name)
{
  return record.GetField(name)->GetValue();
}
inline std::wstring Text(IRecord& record, std::wstring_view name)
{
  return std::get<tstring>(ValueOf(record, name));
}
inline long long Number(IRecord& record, std::wstring_view name)
{
  return std::get<__int64>(ValueOf(record, name));
}
inline std::vector<std::wstring> List(IRecord& record, std::wstring_view name)
{
  return std::get<std::vector<tstring>>(ValueOf(record, name));
}
// The "Index" data value the channel writer puts first in each event.
inline int IndexOf(IRecord& record)
{
  const auto data = List(record, L"Data");
  return data.empty() ? -1 : std::stoi(data.front());
}
} // namespace events_test

// The library as a caller uses it, through create_collector and the pools only: hosts, users,
// tasks, the collection types of the library configured through their init interfaces, records
// to a subscriber, SwitchUser, and Stop(true) / Cancel from the collector. Event logs are
// written into a temporary directory (a host named by an absolute directory reads its logs
// there); MI collections read this machine ("localhost").
#include "TaskTestSupport.h"

#include "Collector/Interfaces.h"
#include "Collector/WinEvents/CreateCollector.h"
#include "Evtx/Writer.h"
#include "TestSupport/TempDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

using namespace natc_task_test;
using namespace collector::ni;

namespace
{
class CTempLogs
{
public:
  const std::filesystem::path& Path() const { return m_directory.Path(); }

  void Write(const std::string& channel, int count)
  {
    evtx::Writer writer;
    std::string error;
    ASSERT_TRUE(writer.Create((Path() / (channel + ".evtx")).string(), &error)) << error;
    for (int i = 1; i <= count; ++i)
    {
      evtx::WriterEvent event;
      event.provider = "Natc-Test";
      event.channel = channel;
      event.eventId = static_cast<std::uint16_t>(100 + i);
      event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(i))});
      ASSERT_NE(writer.Append(event), 0u);
    }
  }

private:
  TempDirectory m_directory{"natc-collector"};
};

class FactoryIntegrationTest : public ::testing::Test
{
protected:
  // Workers may still be ending an update the test no longer waits for: joined here, before the
  // fixture's members go, so that none of them logs while the process exits.
  ~FactoryIntegrationTest() override { m_workers.shutdown(); }

  void SetUp() override
  {
    m_logs.Write("Application", 5);
    m_collector = collector::win_events::create_collector(m_workers, m_token);
    m_user = m_collector->GetUserPool()->CreateDefault(L"", L"");
    m_logHost = m_collector->GetHostPool()->Create(kelda::FromUtf8(m_logs.Path().string()));
    m_machine = m_collector->GetHostPool()->Create(L"localhost");
  }

  void TearDown() override
  {
    if (m_collector)
    {
      m_collector->Stop(true);
    }
  }

  std::shared_ptr<ICollection> Events(const std::shared_ptr<ITask>& task)
  {
    auto collection = task->CreateCollection(L"WindowsEvents");
    if (collection)
    {
      std::vector<win_events::SFilter> filters{{L"Application", L"", 0, {}}};
      std::dynamic_pointer_cast<win_events::ICollectionInit>(collection)->SetFilter(filters);
    }
    return collection;
  }

  std::shared_ptr<ICollection> Properties(const std::shared_ptr<ITask>& task)
  {
    auto collection = task->CreateCollection(L"MiProp");
    if (collection)
    {
      std::dynamic_pointer_cast<mi::IMiCollectionInit>(collection)
        ->SetFilter({L"root/cimv2", L"Win32_OperatingSystem", L"", {L"Caption", L"Version"}});
    }
    return collection;
  }

  CTempLogs m_logs;
  pool m_workers{2};
  std::shared_ptr<ICancellation> m_token = create_cancellation();
  std::shared_ptr<ICollector> m_collector;
  std::shared_ptr<IUser> m_user;
  std::shared_ptr<IHost> m_logHost;
  std::shared_ptr<IHost> m_machine;
};

TEST_F(FactoryIntegrationTest, WindowsEventsDeliversKeyedEventRecords)
{
  auto task = m_collector->GetTaskPool()->Deploy(L"events", m_logHost->GetId(), m_user->GetId());
  auto collection = Events(task);
  ASSERT_NE(collection, nullptr) << "WindowsEvents is not built into the library";
  EXPECT_EQ(collection->GetName(), L"WindowsEvents");
  auto recorder = std::make_shared<CStateRecorder>();
  collection->Subscribe(recorder);
  collection->Run();
  ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Running));
  EXPECT_TRUE(recorder->WaitRecords(5));
  // The class of the collection is registered in the collector's class pool.
  const auto cls = collection->GetClass();
  ASSERT_NE(cls, nullptr);
  EXPECT_EQ(m_collector->GetClassPool()->Get(cls->GetId()), cls);
  m_collector->Stop(true);
  EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
  task->RemoveCollection(collection->GetId());
  EXPECT_EQ(m_collector->GetClassPool()->Get(cls->GetId()), nullptr);
}

// Keeps the first record it sees.
class CFirstRecord : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, ICollectionTypes::Records records) override
  {
    const std::lock_guard lock(m_lock);
    if (!m_record && !records.empty())
    {
      m_record = records.front();
    }
  }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState&) override {}
  std::shared_ptr<IRecord> Record()
  {
    const std::lock_guard lock(m_lock);
    return m_record;
  }

private:
  std::mutex m_lock;
  std::shared_ptr<IRecord> m_record;
};

TEST_F(FactoryIntegrationTest, EventRecordsCarryTheEightFieldsAndTheCollectionClass)
{
  auto task = m_collector->GetTaskPool()->Deploy(L"events", m_logHost->GetId(), m_user->GetId());
  auto collection = Events(task);
  ASSERT_NE(collection, nullptr);
  auto recorder = std::make_shared<CStateRecorder>();
  auto first = std::make_shared<CFirstRecord>();
  collection->Subscribe(recorder);
  collection->Subscribe(first);
  collection->Run();
  ASSERT_TRUE(recorder->WaitRecords(1));
  m_collector->Stop(true);
  auto record = first->Record();
  ASSERT_NE(record, nullptr);
  for (const auto name : {field_names::SourceName, field_names::Description, field_names::CreatedTime,
                          field_names::InitiatedBy, field_names::EventType, field_names::Data, field_names::EventCode,
                          field_names::InternalId})
  {
    EXPECT_NE(record->FindField(name), nullptr) << kelda::ToUtf8(name);
  }
  ASSERT_NE(record->GetKey(), nullptr);
  EXPECT_EQ(record->GetKey()->GetClass(), collection->GetClass());
}

TEST_F(FactoryIntegrationTest, MiPropReadsThisMachine)
{
  auto task = m_collector->GetTaskPool()->Deploy(L"machine", m_machine->GetId(), m_user->GetId());
  auto collection = Properties(task);
  ASSERT_NE(collection, nullptr) << "MiProp is not built into the library";
  auto recorder = std::make_shared<CStateRecorder>();
  auto first = std::make_shared<CFirstRecord>();
  collection->Subscribe(recorder);
  collection->Subscribe(first);
  collection->Run();
  ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Running));
  ASSERT_TRUE(recorder->WaitRecords(1));
  auto record = first->Record();
  ASSERT_NE(record, nullptr);
  EXPECT_FALSE(std::get<tstring>(record->GetField(L"Caption")->GetValue()).empty());
}

TEST_F(FactoryIntegrationTest, MiPerfDeliversCounterRecordsAndItsTargetsAreReachable)
{
  auto task = m_collector->GetTaskPool()->Deploy(L"machine", m_machine->GetId(), m_user->GetId());
  auto collection = task->CreateCollection(L"MiPerf");
  ASSERT_NE(collection, nullptr) << "MiPerf is not built into the library";
  // A raw count needs no earlier sample: the first update already reports it.
  std::dynamic_pointer_cast<performance::IMiPerfCollectionInit>(collection)->SetCounterFilter(
    {{L"Win32_PerfRawData_PerfOS_Memory", L"AvailableBytes", false, FieldValue(tstring(L"memory")), 1.0}});
  // The performance collection publishes its target collection, which the task finds by id.
  const FieldValue targetId = std::dynamic_pointer_cast<IProperties>(collection)->GetProperty(L"TargetCollectionId");
  ASSERT_TRUE(std::holds_alternative<GUID>(targetId));
  auto targets = task->GetCollection(std::get<GUID>(targetId));
  ASSERT_NE(targets, nullptr);
  auto counterRecords = std::make_shared<CFirstRecord>();
  auto targetRecords = std::make_shared<CFirstRecord>();
  auto recorder = std::make_shared<CStateRecorder>();
  collection->Subscribe(counterRecords);
  collection->Subscribe(recorder);
  targets->Subscribe(targetRecords);
  collection->Run();
  ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Running));
  m_collector->Stop(true);
  EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
  auto counter = counterRecords->Record();
  ASSERT_NE(counter, nullptr);
  EXPECT_GT(std::get<double>(counter->GetField(L"v")->GetValue()), 0.0);
  auto target = targetRecords->Record();
  ASSERT_NE(target, nullptr);
  EXPECT_EQ(std::get<tstring>(target->GetField(L"c")->GetValue()), L"memory");
  EXPECT_EQ(std::get<__int64>(target->GetField(L"id")->GetValue()),
            std::get<__int64>(counter->GetField(L"id")->GetValue()));
  // Removing the performance collection takes its target collection along.
  task->RemoveCollection(collection->GetId());
  EXPECT_EQ(task->GetCollection(std::get<GUID>(targetId)), nullptr);
}

TEST_F(FactoryIntegrationTest, SwitchUserReachesEveryCollectionAndTheyKeepDelivering)
{
  auto task = m_collector->GetTaskPool()->Deploy(L"events", m_logHost->GetId(), m_user->GetId());
  auto first = Events(task);
  auto second = Events(task);
  ASSERT_NE(first, nullptr);
  auto recorder = std::make_shared<CStateRecorder>();
  first->Subscribe(recorder);
  second->Subscribe(recorder);
  std::dynamic_pointer_cast<ICollectionInit>(first)->SetUpdatePeriod(1);
  std::dynamic_pointer_cast<ICollectionInit>(second)->SetUpdatePeriod(1);
  first->Run();
  second->Run();
  ASSERT_TRUE(recorder->WaitRecords(10));
  auto alice = m_collector->GetUserPool()->Create(L"CORP\\alice", L"pw");
  EXPECT_EQ(task->SwitchUser(alice->GetId()), m_user->GetId());
  EXPECT_EQ(task->GetUserId(), alice->GetId());
  // New events reach both collections over sessions made with the new user.
  evtx::Writer writer;
  ASSERT_TRUE(writer.Open((m_logs.Path() / "Application.evtx").string()));
  evtx::WriterEvent event;
  event.provider = "Natc-Test";
  event.eventId = 900;
  ASSERT_NE(writer.Append(event), 0u);
  writer.Close();
  EXPECT_TRUE(recorder->WaitRecords(12));
  m_collector->Stop(true);
  EXPECT_EQ(first->GetState(), ICollectionTypes::Stopped);
  EXPECT_EQ(second->GetState(), ICollectionTypes::Stopped);
}

TEST_F(FactoryIntegrationTest, StopTrueAndCancelFromTheCollectorEndEveryTypeInStopped)
{
  auto recorder = std::make_shared<CStateRecorder>();
  std::vector<std::shared_ptr<ICollection>> collections;
  for (int round = 0; round < 2; ++round)
  {
    auto events = m_collector->GetTaskPool()->Deploy(L"events", m_logHost->GetId(), m_user->GetId());
    auto machine = m_collector->GetTaskPool()->Deploy(L"machine", m_machine->GetId(), m_user->GetId());
    auto performance = machine->CreateCollection(L"MiPerf");
    if (performance)
    {
      std::dynamic_pointer_cast<performance::IMiPerfCollectionInit>(performance)->SetCounterFilter(
        {{L"Win32_PerfRawData_PerfOS_Processor", L"PercentProcessorTime", false, FieldValue(tstring(L"cpu")), 1.0}});
    }
    for (const auto& collection : {Events(events), Properties(machine), performance})
    {
      if (collection)
      {
        collection->Subscribe(recorder);
        collection->Run();
        ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Running));
        collections.push_back(collection);
      }
    }
    if (round == 0)
    {
      m_collector->Stop(true);
      for (const auto& collection : collections)
      {
        EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
      }
    }
    else
    {
      m_collector->Cancel();
      for (const auto& collection : collections)
      {
        EXPECT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Stopped));
      }
    }
  }
  EXPECT_EQ(collections.size(), 6u);
}
} // namespace

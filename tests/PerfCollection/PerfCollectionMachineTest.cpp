// CMiPerformanceCollection on this machine's raw performance classes ("localhost"): rates
// appear from the second update on, the processor "_Total" busy percentage agrees with
// /proc/stat over the same window (between scheduled updates one second apart, and around two
// updates run on the test thread), and `sleep` children that end or start become removed and
// added targets.
#include "PerfFixture.h"
#include "TestSupport/TempDirectory.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace perf_test;
using natc_test::CFixedClass;
using natc_test::CFixedHost;
using natc_test::CFixedUser;
using natc_test::CLoggerCapture;

namespace
{
constexpr const wchar_t* processorClass = L"Win32_PerfRawData_PerfOS_Processor";
constexpr const wchar_t* memoryClass = L"Win32_PerfRawData_PerfOS_Memory";
constexpr const wchar_t* diskClass = L"Win32_PerfRawData_PerfDisk_PhysicalDisk";
constexpr const wchar_t* processClass = L"Win32_PerfRawData_PerfProc_Process";

// Busy and total jiffies of the "cpu" line of /proc/stat (idle = idle + iowait).
struct CpuJiffies
{
  unsigned long long idle = 0;
  unsigned long long total = 0;
};

CpuJiffies ReadProcStat()
{
  std::ifstream stat("/proc/stat");
  std::string line;
  std::getline(stat, line);
  std::istringstream fields(line);
  std::string label;
  fields >> label;
  CpuJiffies jiffies;
  unsigned long long value = 0;
  // user nice system idle iowait irq softirq steal (guest times are inside user and nice).
  for (int column = 0; column < 8 && fields >> value; ++column)
  {
    jiffies.total += value;
    if (column == 3 || column == 4)
      jiffies.idle += value;
  }
  return jiffies;
}

// The busy share of the machine, in percent, between two readings of /proc/stat.
double BusyPercent(const CpuJiffies& from, const CpuJiffies& to)
{
  const double total = static_cast<double>(to.total - from.total);
  if (total <= 0.0)
    return -1.0;
  return 100.0 * (1.0 - static_cast<double>(to.idle - from.idle) / total);
}

// Records batches like CBatches and reads /proc/stat the moment each update's records arrive,
// right after the update's samples were taken.
class CStatAtEachUpdate : public CBatches
{
public:
  void OnRecords(const GUID& id, ICollectionTypes::Records records) override
  {
    {
      const std::lock_guard lock(m_statLock);
      m_stats.push_back(ReadProcStat());
    }
    CBatches::OnRecords(id, records);
  }
  std::vector<CpuJiffies> Stats() const
  {
    const std::lock_guard lock(m_statLock);
    return m_stats;
  }

private:
  mutable std::mutex m_statLock;
  std::vector<CpuJiffies> m_stats;
};

class PerfCollectionMachineTest : public ::testing::Test
{
protected:
  void SetUp() override
  {
    collection = std::make_shared<CTestPerfCollection>(
      root, *threadPool, create_cancellation(), std::make_shared<CFixedHost>(L"localhost"),
      std::make_shared<CFixedUser>(L""), std::make_shared<CFixedClass>(L"MiPerf"), targets);
    collection->SetApplication(CMiApplication::CreateInstance());
    collection->Subscribe(batches);
    targets->Subscribe(targetBatches);
  }

  void TearDown() override
  {
    collection->Stop(true);
    collection.reset();
    // Joins the workers first: one may still be ending an update that logs.
    threadPool->shutdown();
    threadPool.reset();
  }

  // The target value ("class:counter") of every target number reported so far.
  std::map<__int64, std::wstring> TargetNames() const
  {
    std::map<__int64, std::wstring> names;
    for (const auto& batch : targetBatches->Batches())
      for (const auto& record : batch)
      {
        const TargetRecord target = ReadTarget(*record);
        if (target.operation == 1)
          names[target.id] = std::get<tstring>(target.value);
      }
    return names;
  }

  static Filter Counter(const wchar_t* className, const wchar_t* counter)
  {
    return {className, counter, false, tstring(className) + L":" + counter, 1.0};
  }

  CLoggerCapture capture{ELogLevel::Info};
  std::shared_ptr<CLog> root = std::make_shared<CLog>(nullptr, L"[NatC]");
  std::optional<pool> threadPool{std::in_place, 2};
  std::shared_ptr<CPerfTargetCollection> targets = std::make_shared<CPerfTargetCollection>();
  std::shared_ptr<CTestPerfCollection> collection;
  std::shared_ptr<CStatAtEachUpdate> batches = std::make_shared<CStatAtEachUpdate>();
  std::shared_ptr<CBatches> targetBatches = std::make_shared<CBatches>();
};

TEST_F(PerfCollectionMachineTest, RateCountersReportFromTheSecondUpdateAndTotalBusyMatchesProcStat)
{
  const std::set<std::wstring> rates{
    std::wstring(processorClass) + L":PercentProcessorTime", std::wstring(processorClass) + L":InterruptsPersec",
    std::wstring(memoryClass) + L":PageFaultsPersec", std::wstring(diskClass) + L":DiskReadBytesPersec",
    std::wstring(diskClass) + L":PercentDiskTime"};
  collection->SetCounterFilter({Counter(processorClass, L"PercentProcessorTime"),
                                Counter(processorClass, L"InterruptsPersec"),
                                Counter(memoryClass, L"AvailableBytes"), Counter(memoryClass, L"PageFaultsPersec"),
                                Counter(diskClass, L"DiskReadBytesPersec"), Counter(diskClass, L"PercentDiskTime"),
                                Counter(diskClass, L"CurrentDiskQueueLength")});
  collection->SetUpdatePeriod(1);
  collection->Run();
  ASSERT_TRUE(batches->WaitBatches(2));
  collection->Stop(true);
  ASSERT_TRUE(targetBatches->WaitBatches(2));

  const auto names = TargetNames();
  const auto all = batches->Batches();
  std::set<std::wstring> first;
  std::set<std::wstring> second;
  for (const auto& record : all[0])
    first.insert(names.at(ReadCounter(*record).id));
  for (const auto& record : all[1])
    second.insert(names.at(ReadCounter(*record).id));
  for (const auto& rate : rates)
  {
    EXPECT_EQ(first.count(rate), 0U) << kelda::ToUtf8(rate);
    EXPECT_EQ(second.count(rate), 1U) << kelda::ToUtf8(rate);
  }
  EXPECT_EQ(first.count(std::wstring(memoryClass) + L":AvailableBytes"), 1U);
  EXPECT_EQ(first.count(std::wstring(diskClass) + L":CurrentDiskQueueLength"), 1U);

  // The "_Total" processor target and its value in the second update.
  // A rate's target is added with its first record, in the second update.
  __int64 totalId = 0;
  const auto secondTargets = targetBatches->Batches()[1];
  for (const auto& record : secondTargets)
  {
    const TargetRecord target = ReadTarget(*record);
    if (target.instance.empty() && std::get<tstring>(target.value) == std::wstring(processorClass) + L":PercentProcessorTime")
      totalId = target.id;
  }
  ASSERT_NE(totalId, 0);
  std::optional<double> busy;
  for (const auto& record : all[1])
    if (ReadCounter(*record).id == totalId)
      busy = ReadCounter(*record).value;
  ASSERT_TRUE(busy.has_value());
  EXPECT_GE(*busy, 0.0);
  EXPECT_LE(*busy, 100.0);

  const auto stats = batches->Stats();
  ASSERT_GE(stats.size(), 2U);
  EXPECT_NEAR(*busy, BusyPercent(stats[0], stats[1]), 3.0);
}

// The processor "_Total" busy percentage of two updates run on this thread, against /proc/stat
// read just before the first sample and just after the second.
TEST_F(PerfCollectionMachineTest, TotalBusyOfTwoUpdatesLiesInRangeAndMatchesProcStatAroundThem)
{
  collection->SetCounterFilter({Counter(processorClass, L"PercentProcessorTime")});
  const CpuJiffies before = ReadProcStat();
  collection->UpdateOnce();
  const CpuJiffies afterFirst = ReadProcStat();
  // The measurement window (one second, 100 jiffies per processor); nothing is waited for here.
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const CpuJiffies beforeSecond = ReadProcStat();
  collection->UpdateOnce();
  const CpuJiffies after = ReadProcStat();

  const auto all = batches->Batches();
  ASSERT_EQ(all.size(), 2U);
  // A rate: nothing on the first update.
  EXPECT_TRUE(all[0].empty());
  __int64 totalId = 0;
  const auto changes = targetBatches->Batches().at(1);
  for (const auto& record : changes)
    if (const TargetRecord target = ReadTarget(*record); target.operation == 1 && target.instance.empty())
      totalId = target.id;
  ASSERT_NE(totalId, 0);
  std::optional<double> busy;
  for (const auto& record : all[1])
    if (ReadCounter(*record).id == totalId)
      busy = ReadCounter(*record).value;
  ASSERT_TRUE(busy.has_value());
  EXPECT_GE(*busy, 0.0);
  EXPECT_LE(*busy, 100.0);
  // The collection's two samples were taken inside the two updates: its window holds the inner
  // one (between the updates) and lies inside the outer one (around both). Its busy share is
  // then at least the inner busy time over the outer total, and at most the outer busy time
  // over the inner total; under load the updates are slow and this range is wider than one
  // window's figure.
  const auto busyJiffies = [](const CpuJiffies& from, const CpuJiffies& to) {
    return static_cast<double>((to.total - from.total) - (to.idle - from.idle));
  };
  const auto totalJiffies = [](const CpuJiffies& from, const CpuJiffies& to) {
    return static_cast<double>(to.total - from.total);
  };
  const double lowest = 100.0 * busyJiffies(afterFirst, beforeSecond) / totalJiffies(before, after);
  const double highest = 100.0 * busyJiffies(before, after) / totalJiffies(afterFirst, beforeSecond);
  EXPECT_GE(*busy, lowest - 3.0) << "outer window " << BusyPercent(before, after);
  EXPECT_LE(*busy, highest + 3.0) << "inner window " << BusyPercent(afterFirst, beforeSecond);
}

// A child running `sleep` under a name of its own: it is started through a symbolic link named
// like the wanted process name (the kernel names a process after the file it executes), so
// that its performance instance is found by name. The constructor returns once the exec
// succeeded: the pipe closes on exec.
class CSleepingChild
{
public:
  CSleepingChild(const std::string& directory, const std::string& name) : m_link(directory + "/" + name)
  {
    const char* sleepPath = access("/usr/bin/sleep", X_OK) == 0 ? "/usr/bin/sleep" : "/bin/sleep";
    if (symlink(sleepPath, m_link.c_str()) != 0)
      return;
    std::array<int, 2> pipeEnds{-1, -1};
    if (pipe2(pipeEnds.data(), O_CLOEXEC) != 0)
      return;
    // Everything the child touches is made before the fork: a child of a threaded process may
    // only make system calls.
    std::string nameCopy = name;
    std::string seconds = "600";
    std::array<char*, 3> arguments{nameCopy.data(), seconds.data(), nullptr};
    m_pid = fork();
    if (m_pid == 0)
    {
      close(pipeEnds[0]);
      // It dies with the test thread, whatever way the test ends.
      prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
      execv(m_link.c_str(), arguments.data());
      const char failed = 1;
      (void)!write(pipeEnds[1], &failed, 1);
      _exit(127);
    }
    close(pipeEnds[1]);
    if (m_pid > 0)
    {
      char byte = 0;
      ssize_t got = 0;
      do
        got = read(pipeEnds[0], &byte, 1);
      while (got < 0 && errno == EINTR);
      m_running = got == 0;
    }
    close(pipeEnds[0]);
  }
  ~CSleepingChild()
  {
    End();
    unlink(m_link.c_str());
  }
  CSleepingChild(const CSleepingChild&) = delete;
  CSleepingChild& operator=(const CSleepingChild&) = delete;

  bool Running() const { return m_running; }
  // Kills the child and reaps it: once this returns, the process is gone from /proc.
  void End()
  {
    if (m_pid > 0)
    {
      kill(m_pid, SIGKILL);
      waitpid(m_pid, nullptr, 0);
      m_pid = -1;
      m_running = false;
    }
  }

private:
  std::string m_link;
  pid_t m_pid = -1;
  bool m_running = false;
};

TEST_F(PerfCollectionMachineTest, EndedProcessIsARemovedTargetAndANewOneAnAddedTargetWithANewNumber)
{
  // A private directory for the children's links, removed with the test.
  const TempDirectory directory("natc-perf");
  // Process names have at most 15 characters; the test's own id keeps them apart from others.
  const std::string tag = std::to_string(getpid() % 1000000);
  const std::string firstName = "natcA" + tag;
  const std::string secondName = "natcB" + tag;
  collection->SetCounterFilter({Counter(processClass, L"IDProcess")});

  // The target of that name with that operation in the change batch of that update, or 0.
  const auto findTarget = [&](const std::string& name, std::uint32_t operation, std::size_t batch) -> __int64 {
    // A copy: the range of a range-for would not keep the temporary list of batches alive.
    const auto changes = targetBatches->Batches().at(batch);
    for (const auto& record : changes)
    {
      const TargetRecord target = ReadTarget(*record);
      if (target.operation == operation && target.instance == kelda::FromUtf8(name))
        return target.id;
    }
    return 0;
  };
  // The exec has happened, but the kernel may rename the process a moment after it closes the
  // pipe: an update that does not see the name yet is repeated (a bounded number of times).
  const auto updateUntilAdded = [&](const std::string& name) -> __int64 {
    for (int attempt = 0; attempt < 50; ++attempt)
    {
      collection->UpdateOnce();
      if (const __int64 id = findTarget(name, 1, targetBatches->Batches().size() - 1); id != 0)
        return id;
    }
    return 0;
  };

  // Targets of the processes running before the children, so that every number given is known.
  collection->UpdateOnce();
  CSleepingChild first(directory.Path().string(), firstName);
  ASSERT_TRUE(first.Running());
  const std::uint64_t givenBeforeFirst = targets->NumbersGiven();
  const __int64 firstId = updateUntilAdded(firstName);
  ASSERT_NE(firstId, 0);
  EXPECT_GT(static_cast<std::uint64_t>(firstId), givenBeforeFirst);

  first.End();
  collection->UpdateOnce();
  EXPECT_EQ(findTarget(firstName, 3, targetBatches->Batches().size() - 1), firstId);
  for (const auto& [identity, data] : targets->Targets())
    EXPECT_NE(identity.instance, kelda::FromUtf8(firstName));

  CSleepingChild second(directory.Path().string(), secondName);
  ASSERT_TRUE(second.Running());
  const std::uint64_t givenBeforeSecond = targets->NumbersGiven();
  const __int64 secondId = updateUntilAdded(secondName);
  ASSERT_NE(secondId, 0);
  // A new number, above every number given before: numbers are never reused.
  EXPECT_GT(static_cast<std::uint64_t>(secondId), givenBeforeSecond);
  EXPECT_GT(secondId, firstId);
  for (const auto& [identity, data] : targets->Targets())
    EXPECT_NE(static_cast<__int64>(data.number), firstId);

  second.End();
  collection->UpdateOnce();
  EXPECT_EQ(findTarget(secondName, 3, targetBatches->Batches().size() - 1), secondId);
}
} // namespace

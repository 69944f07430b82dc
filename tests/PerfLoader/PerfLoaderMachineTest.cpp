// The cooked counters of this machine's raw classes, read through CMiPerformanceLoader, agree
// with what the machine itself says: System Up Time with /proc/uptime, a started process's
// elapsed time with its age, the processor's user and privileged times with its total (on this
// machine and on a host whose performance counter runs at 3,579,545 Hz), committed bytes in use
// with /proc/meminfo, and disk seconds per read with /proc/diskstats over a read burst.
#include "MiPerformanceLoader.h"

#include "Log.h"
#include "MiApplication.h"
#include "TestSupport.h"

#include "Cim/Machine/DeviceParsers.h"
#include "Cim/Machine/SystemParsers.h"
#include "Cim/Provider.h"
#include "Cim/Testing/TestHost.h"

#include "TestSupport/ChildProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

namespace
{
constexpr const wchar_t* systemClass = L"Win32_PerfRawData_PerfOS_System";
constexpr const wchar_t* processClass = L"Win32_PerfRawData_PerfProc_Process";
constexpr const wchar_t* processorClass = L"Win32_PerfRawData_PerfOS_Processor";
constexpr const wchar_t* memoryClass = L"Win32_PerfRawData_PerfOS_Memory";
constexpr const wchar_t* diskClass = L"Win32_PerfRawData_PerfDisk_PhysicalDisk";

std::string ReadFile(const char* path)
{
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// A loader on one class of a destination's "root/cimv2".
class MachineLoader
{
public:
  MachineLoader(const wchar_t* destination, const wchar_t* className, std::set<tstring, std::less<>> counters)
      : m_className(className)
  {
    m_session->Connect(destination, L"", L"", L"");
    m_loader.SetFilter(CMiPerformanceLoader::ClassFilters({{className, std::move(counters)}}));
  }

  const CMiPerformanceLoader::InstanceMap& Load()
  {
    const auto& result = m_loader.Load(*m_session, nullptr).at(m_className);
    if (result.error)
      std::rethrow_exception(result.error);
    return result.instances;
  }

  std::optional<double> Value(std::wstring_view instance, std::wstring_view counter) const
  {
    const auto& instances = m_loader.Results().at(m_className).instances;
    const auto found = instances.find(instance);
    if (found == instances.end())
      return std::nullopt;
    const auto data = found->second.find(counter);
    return data == found->second.end() ? std::nullopt : data->second.value;
  }

private:
  std::wstring m_className;
  std::shared_ptr<CMiApplication> m_application = CMiApplication::CreateInstance();
  std::shared_ptr<CMiSession> m_session = std::make_shared<CMiSession>(m_application);
  CMiPerformanceLoader m_loader{std::make_shared<CLog>(nullptr, L"[MiLoader]")};
};


// Two loads around a second of busy user time on this thread, so that the percentages are far
// from zero whatever else the machine does.
void LoadTwiceAroundBusySecond(MachineLoader& loader)
{
  loader.Load();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  volatile std::uint64_t spins = 0;
  while (std::chrono::steady_clock::now() < end)
    spins = spins + 1;
  loader.Load();
}

void ExpectUserPlusPrivilegedIsTotal(const wchar_t* destination)
{
  MachineLoader loader(destination, processorClass,
                       {L"PercentProcessorTime", L"PercentUserTime", L"PercentPrivilegedTime"});
  const auto before = cim::machine::ParseProcStat(ReadFile("/proc/stat")).total;
  LoadTwiceAroundBusySecond(loader);
  const auto after = cim::machine::ParseProcStat(ReadFile("/proc/stat")).total;
  const auto total = loader.Value(L"_Total", L"PercentProcessorTime");
  const auto user = loader.Value(L"_Total", L"PercentUserTime");
  const auto privileged = loader.Value(L"_Total", L"PercentPrivilegedTime");
  ASSERT_TRUE(total && user && privileged && before && after);
  // A virtual machine's stolen time is busy but neither user nor privileged (Windows has no such
  // share), so the two may fall short of the total by the share the hypervisor took meanwhile.
  const auto ticks = static_cast<double>(after->Total() - before->Total());
  const auto stolen = ticks > 0 ? 100.0 * static_cast<double>(after->steal - before->steal) / ticks : 0.0;
  // The stolen share is read just outside the loader's own reads: a tick may fall between them
  // at either end of the window.
  const auto stolenAtMost = stolen + (ticks > 0 ? 2 * 100.0 / ticks : 0.0);
  EXPECT_NEAR(*user + *privileged, *total - stolenAtMost / 2, 2.0 + stolenAtMost / 2)
      << "user " << *user << ", privileged " << *privileged << ", stolen " << stolen;
  EXPECT_LE(*total, 101.0);
  // This thread kept one processor busy for the whole window.
  EXPECT_GE(*user, 100.0 / static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN)) - 10.0);
}

double CommittedPercent()
{
  const auto meminfo = cim::machine::ParseMeminfo(ReadFile("/proc/meminfo"));
  const auto committed = cim::machine::Lookup(meminfo, "Committed_AS");
  const auto limit = cim::machine::Lookup(meminfo, "CommitLimit");
  if (!committed || !limit || *limit == 0)
    throw std::runtime_error("no commit figures");
  return 100.0 * static_cast<double>(*committed) / static_cast<double>(*limit);
}

// Milliseconds spent reading and reads completed, summed over the named disks.
struct ReadTotals
{
  double milliseconds = 0;
  double reads = 0;
};

ReadTotals ReadDiskstats(const std::set<std::string, std::less<>>& disks)
{
  ReadTotals totals;
  for (const auto& disk : cim::machine::ParseDiskstats(ReadFile("/proc/diskstats")))
  {
    if (disks.count(disk.name) == 0)
      continue;
    totals.milliseconds += static_cast<double>(disk.msReading);
    totals.reads += static_cast<double>(disk.reads);
  }
  return totals;
}

// Seconds per read between two readings, or -1 without reads.
double SecondsPerRead(const ReadTotals& from, const ReadTotals& to)
{
  const double reads = to.reads - from.reads;
  return reads > 0 ? (to.milliseconds - from.milliseconds) / 1000.0 / reads : -1.0;
}

// Reads that reach the disk: a file written and synced, then read with O_DIRECT (or, where the
// file system refuses it, after dropping the file's cached pages).
class ReadBurst
{
public:
  ReadBurst() : m_path("perf_loader_read_burst." + std::to_string(getpid()))
  {
    const int fd = open(m_path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    if (fd < 0)
      return;
    std::vector<char> block(kBlock, 'x');
    for (int i = 0; i < kBlocks; ++i)
      if (write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size()))
        break;
    fsync(fd);
    close(fd);
    m_ready = true;
  }
  ~ReadBurst() { unlink(m_path.c_str()); }
  ReadBurst(const ReadBurst&) = delete;
  ReadBurst& operator=(const ReadBurst&) = delete;

  bool Ready() const { return m_ready; }

  void Run() const
  {
    int fd = open(m_path.c_str(), O_RDONLY | O_DIRECT);
    if (fd < 0)
    {
      fd = open(m_path.c_str(), O_RDONLY);
      if (fd < 0)
        return;
      posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    }
    void* buffer = nullptr;
    if (posix_memalign(&buffer, kBlock, kBlock) == 0)
    {
      const std::unique_ptr<void, decltype(&std::free)> owned(buffer, &std::free);
      // Backwards, one block at a time, so that read-ahead does not merge them into one.
      for (int i = kBlocks - 1; i >= 0; --i)
        if (pread(fd, buffer, kBlock, static_cast<off_t>(i) * kBlock) <= 0)
          break;
    }
    close(fd);
  }

private:
  static constexpr int kBlock = 4096;
  static constexpr int kBlocks = 256;
  std::string m_path;
  bool m_ready = false;
};
} // namespace

TEST(PerfLoaderMachineTruth, SystemUpTimeWithinOneSecondOfProcUptime)
{
  MachineLoader loader(L"localhost", systemClass, {L"SystemUpTime"});
  loader.Load();
  const double uptime = std::stod(ReadFile("/proc/uptime"));
  const auto upTime = loader.Value(L"", L"SystemUpTime");
  ASSERT_TRUE(upTime.has_value());
  EXPECT_NEAR(*upTime, uptime, 1.0);
}

TEST(PerfLoaderMachineTruth, StartedProcessElapsedTimeWithinOneSecondOfItsAge)
{
  const auto spawned = std::chrono::steady_clock::now();
  ChildProcess child({"/bin/sleep", "30"});
  ASSERT_GT(child.pid(), 0);
  MachineLoader loader(L"localhost", processClass, {L"ElapsedTime", L"IDProcess"});
  const auto& instances = loader.Load();
  const std::chrono::duration<double> age = std::chrono::steady_clock::now() - spawned;
  std::optional<double> elapsed;
  for (const auto& [name, counters] : instances)
  {
    const auto id = counters.find(L"IDProcess");
    if (name != L"_Total" && id != counters.end() && id->second.value == static_cast<double>(child.pid()))
      elapsed = counters.at(L"ElapsedTime").value;
  }
  ASSERT_TRUE(elapsed.has_value());
  // Between the spawn and the end of the load, give or take one kernel tick of the start time.
  const double tick = 1.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
  EXPECT_LE(*elapsed, age.count() + tick);
  EXPECT_NEAR(*elapsed, age.count(), 1.0);
}

TEST(PerfLoaderMachineTruth, UserPlusPrivilegedIsTotalOnThisMachine)
{
  ExpectUserPlusPrivilegedIsTotal(L"localhost");
}

TEST(PerfLoaderMachineTruth, UserPlusPrivilegedIsTotalOnAHostCountingAt3579545Hz)
{
  cim::testing::TestHost slow(L"slowclock", 3'579'545);
  cim::RegisterMachineProviders(slow.Get());
  ExpectUserPlusPrivilegedIsTotal(slow.Destination().c_str());
}

TEST(PerfLoaderMachineTruth, CommittedBytesInUseWithinOnePointOfMeminfo)
{
  MachineLoader loader(L"localhost", memoryClass, {L"PercentCommittedBytesInUse"});
  // Committed_AS moves with every process started: the reading lies between the two around it.
  const double before = CommittedPercent();
  loader.Load();
  const double after = CommittedPercent();
  const auto inUse = loader.Value(L"", L"PercentCommittedBytesInUse");
  ASSERT_TRUE(inUse.has_value());
  EXPECT_GE(*inUse, std::min(before, after) - 1.0);
  EXPECT_LE(*inUse, std::max(before, after) + 1.0);
}

TEST(PerfLoaderMachineTruth, DiskSecondsPerReadAgreesWithDiskstatsOverAReadBurst)
{
  MachineLoader loader(L"localhost", diskClass, {L"AvgDisksecPerRead"});
  std::set<std::string, std::less<>> disks;
  for (const auto& [name, counters] : loader.Load())
    if (name != L"_Total")
      disks.emplace(name.begin(), name.end());
  if (disks.empty())
    GTEST_SKIP() << "this machine has no physical disk";
  const ReadBurst burst;
  ASSERT_TRUE(burst.Ready());

  const auto before = ReadDiskstats(disks);
  loader.Load();
  const auto afterFirst = ReadDiskstats(disks);
  burst.Run();
  const auto beforeSecond = ReadDiskstats(disks);
  loader.Load();
  const auto after = ReadDiskstats(disks);

  const double inner = SecondsPerRead(afterFirst, beforeSecond);
  const double outer = SecondsPerRead(before, after);
  ASSERT_GT(inner, -1.0) << "the burst reached no disk";
  const auto perRead = loader.Value(L"_Total", L"AvgDisksecPerRead");
  ASSERT_TRUE(perRead.has_value());
  // Other reads of the machine may fall between a sample and the reading next to it.
  EXPECT_NEAR(*perRead, inner, std::fabs(outer - inner) + 0.0005) << "outer window " << outer;
}

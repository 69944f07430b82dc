// The machine's classes agree with what the machine itself says (uname, os-release,
// /proc/meminfo, /proc/stat, /proc/uptime, /proc/mounts), read through the registered providers.
#include "Cim/Machine/SystemParsers.h"
#include "Cim/Names.h"
#include "Cim/Provider.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

extern char** environ;

namespace
{
std::string ReadFile(const char* path)
{
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::vector<cim::Instance> Query(const wchar_t* className)
{
  const auto host = cim::Hosts::Resolve(L"localhost");
  if (!host)
    throw std::runtime_error("no machine host");
  const auto provider = host->Find(L"root\\cimv2", className);
  if (!provider)
    throw std::runtime_error("class not registered");
  std::vector<cim::Instance> out;
  provider->Enumerate(out);
  return out;
}

const cim::Instance* FindByName(const std::vector<cim::Instance>& instances, std::wstring_view name)
{
  for (const auto& instance : instances)
  {
    const auto& value = instance.elements[instance.decl->Find(L"Name")].value;
    if (value && std::get<std::wstring>(*value) == name)
      return &instance;
  }
  return nullptr;
}

template <typename T>
T Value(const cim::Instance& instance, std::wstring_view name)
{
  const auto index = instance.decl->Find(name);
  if (index == cim::ClassDecl::npos || !instance.elements[index].value)
    throw std::runtime_error("missing value");
  return std::get<T>(*instance.elements[index].value);
}

std::uint64_t MeminfoKb(const char* field)
{
  return cim::machine::Lookup(cim::machine::ParseMeminfo(ReadFile("/proc/meminfo")), field).value_or(0);
}

// A child process for the test's lifetime: spawned here, killed and reaped on destruction.
class ChildProcess
{
public:
  explicit ChildProcess(std::vector<std::string> args)
  {
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (auto& arg : args)
      argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (posix_spawn(&m_pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
      m_pid = -1;
  }
  ~ChildProcess()
  {
    if (m_pid > 0)
    {
      kill(m_pid, SIGKILL);
      int status = 0;
      waitpid(m_pid, &status, 0);
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  pid_t pid() const { return m_pid; }

private:
  pid_t m_pid = -1;
};
} // namespace

TEST(MachineTruth, OperatingSystemAgreesWithUnameOsReleaseAndMeminfo)
{
  const auto instances = Query(L"Win32_OperatingSystem");
  ASSERT_EQ(instances.size(), 1u);
  const auto& os = instances[0];
  struct utsname names{};
  ASSERT_EQ(uname(&names), 0);
  EXPECT_EQ(Value<std::wstring>(os, L"Version"), cim::Widen(names.release));
  EXPECT_EQ(Value<std::wstring>(os, L"BuildNumber"), cim::Widen(names.version));
  EXPECT_EQ(Value<std::wstring>(os, L"CSName"), cim::Widen(names.nodename));
  const auto release = cim::machine::ParseOsRelease(ReadFile("/etc/os-release"));
  if (const auto pretty = release.find("PRETTY_NAME"); pretty != release.end() && !pretty->second.empty())
  {
    EXPECT_EQ(Value<std::wstring>(os, L"Caption"), cim::Widen(pretty->second));
  }
  EXPECT_EQ(Value<std::uint64_t>(os, L"TotalVisibleMemorySize"), MeminfoKb("MemTotal"));
  const auto free = static_cast<double>(Value<std::uint64_t>(os, L"FreePhysicalMemory"));
  const auto available = static_cast<double>(MeminfoKb("MemAvailable"));
  EXPECT_NEAR(free, available, available * 0.05);
  EXPECT_EQ(Value<std::uint64_t>(os, L"SizeStoredInPagingFiles"), MeminfoKb("SwapTotal"));
  EXPECT_GT(Value<std::uint32_t>(os, L"NumberOfProcesses"), 0u);
  const auto boot = Value<cim::DateTime>(os, L"LastBootUpTime");
  EXPECT_GE(boot.year, 2000u);
}

TEST(MachineTruth, ComputerSystemAgreesWithUnameCpusAndMeminfo)
{
  const auto instances = Query(L"Win32_ComputerSystem");
  ASSERT_EQ(instances.size(), 1u);
  const auto& cs = instances[0];
  struct utsname names{};
  ASSERT_EQ(uname(&names), 0);
  const std::string node(names.nodename);
  EXPECT_EQ(Value<std::wstring>(cs, L"Name"), cim::Widen(node.substr(0, node.find('.'))));
  EXPECT_EQ(Value<std::uint32_t>(cs, L"NumberOfLogicalProcessors"), static_cast<std::uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
  EXPECT_GE(Value<std::uint32_t>(cs, L"NumberOfProcessors"), 1u);
  EXPECT_EQ(Value<std::uint64_t>(cs, L"TotalPhysicalMemory"), MeminfoKb("MemTotal") * 1024);
}

TEST(MachineTruth, ProcessorTotalCookedOverOneSecondAgreesWithProcStat)
{
  struct Sample
  {
    std::int64_t idle, timestamp, frequency;
    cim::machine::CpuTimes direct;
  };
  const auto sample = [] {
    const auto instances = Query(L"Win32_PerfRawData_PerfOS_Processor");
    const auto stat = cim::machine::ParseProcStat(ReadFile("/proc/stat"));
    const auto* total = FindByName(instances, L"_Total");
    if (total == nullptr || !stat.total)
      throw std::runtime_error("no _Total");
    return Sample{static_cast<std::int64_t>(Value<std::uint64_t>(*total, L"PercentProcessorTime")),
                  static_cast<std::int64_t>(Value<std::uint64_t>(*total, L"Timestamp_PerfTime")),
                  static_cast<std::int64_t>(Value<std::uint64_t>(*total, L"Frequency_PerfTime")), *stat.total};
  };
  const auto previous = sample();
  // The measurement window of the rate, not a wait for a thread.
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const auto current = sample();

  // PERF_100NSEC_TIMER_INV as the counter calculation applies it: previous minus current.
  const auto dN = static_cast<double>(previous.idle - current.idle);
  const auto D = (previous.timestamp - current.timestamp) * 10'000'000 / current.frequency;
  ASSERT_NE(D, 0);
  const double cooked = (1.0 - dN / static_cast<double>(D)) * 100.0;

  const auto idle = static_cast<double>(current.direct.Idle() - previous.direct.Idle());
  const auto all = static_cast<double>(current.direct.Total() - previous.direct.Total());
  ASSERT_GT(all, 0.0);
  const double direct = (1.0 - idle / all) * 100.0;
  EXPECT_GE(cooked, -1.0);
  EXPECT_LE(cooked, 101.0);
  EXPECT_NEAR(cooked, direct, 3.0);
}

TEST(MachineTruth, AvailableBytesAgreesWithMemAvailable)
{
  const auto instances = Query(L"Win32_PerfRawData_PerfOS_Memory");
  const auto available = static_cast<double>(MeminfoKb("MemAvailable") * 1024);
  ASSERT_EQ(instances.size(), 1u);
  const auto reported = static_cast<double>(Value<std::uint64_t>(instances[0], L"AvailableBytes"));
  EXPECT_NEAR(reported, available, available * 0.01);
}

TEST(MachineTruth, SystemUpTimeCookedAgreesWithProcUptime)
{
  const auto instances = Query(L"Win32_PerfRawData_PerfOS_System");
  const auto uptime = std::stod(ReadFile("/proc/uptime"));
  ASSERT_EQ(instances.size(), 1u);
  const auto& system = instances[0];
  // PERF_ELAPSED_TIME, (D0 - N0) / F, on the object time base: D0 = Timestamp_Object,
  // F = Frequency_Object (https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc756820(v=ws.10)).
  const auto elapsed = static_cast<double>(Value<std::uint64_t>(system, L"Timestamp_Object") -
                                           Value<std::uint64_t>(system, L"SystemUpTime")) /
                       static_cast<double>(Value<std::uint64_t>(system, L"Frequency_Object"));
  EXPECT_NEAR(elapsed, uptime, 1.0);
  EXPECT_GT(Value<std::uint32_t>(system, L"Processes"), 0u);
}

TEST(MachineTruth, AStartedProcessAppearsInBothProcessClasses)
{
  const auto spawned = std::chrono::steady_clock::now();
  ChildProcess child({"/bin/sleep", "30"});
  ASSERT_GT(child.pid(), 0);
  const auto pid = static_cast<std::uint32_t>(child.pid());

  const auto processes = Query(L"Win32_Process");
  const cim::Instance* found = nullptr;
  for (const auto& process : processes)
  {
    if (Value<std::uint32_t>(process, L"ProcessId") == pid)
      found = &process;
  }
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(Value<std::uint32_t>(*found, L"ParentProcessId"), static_cast<std::uint32_t>(getpid()));
  // Spawned and possibly not yet exec'ed: the name is either ours or the new program's.
  const auto name = Value<std::wstring>(*found, L"Name");
  // Exec renames the process before it lays out the new arguments: for a moment the new name
  // goes with an empty command line.
  const auto commandLine = Value<std::wstring>(*found, L"CommandLine");
  if (name == L"sleep" && !commandLine.empty())
  {
    EXPECT_EQ(commandLine, L"/bin/sleep 30");
  }

  const auto perf = Query(L"Win32_PerfRawData_PerfProc_Process");
  const std::chrono::duration<double> age = std::chrono::steady_clock::now() - spawned;
  const cim::Instance* counters = nullptr;
  for (const auto& process : perf)
  {
    if (Value<std::uint32_t>(process, L"IDProcess") == pid && Value<std::wstring>(process, L"Name") != L"_Total")
      counters = &process;
  }
  ASSERT_NE(counters, nullptr);
  EXPECT_EQ(Value<std::uint32_t>(*counters, L"CreatingProcessID"), static_cast<std::uint32_t>(getpid()));
  // PERF_ELAPSED_TIME on the object time base: the FILETIME of the sample minus the FILETIME
  // of the start. It lies between 0 and the time since the spawn, give or take a kernel tick.
  const auto elapsed = static_cast<double>(static_cast<std::int64_t>(
                         Value<std::uint64_t>(*counters, L"Timestamp_Object") -
                         Value<std::uint64_t>(*counters, L"ElapsedTime"))) /
                       static_cast<double>(Value<std::uint64_t>(*counters, L"Frequency_Object"));
  const double tick = 1.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
  EXPECT_GE(elapsed, -tick);
  EXPECT_LE(elapsed, age.count() + tick);
  EXPECT_NEAR(elapsed, age.count(), 1.0);
  EXPECT_NE(FindByName(perf, L"_Total"), nullptr);
  EXPECT_NE(FindByName(perf, L"Idle"), nullptr);
}

TEST(MachineTruth, EveryClassEnumeratesWithDeclaredTypes)
{
  for (const auto* name : {L"Win32_OperatingSystem", L"Win32_ComputerSystem", L"Win32_Process", L"Win32_LogicalDisk",
                           L"Win32_PerfRawData_PerfOS_Processor", L"Win32_PerfRawData_PerfOS_Memory",
                           L"Win32_PerfRawData_PerfOS_System", L"Win32_PerfRawData_PerfDisk_PhysicalDisk",
                           L"Win32_PerfRawData_Tcpip_NetworkInterface", L"Win32_PerfRawData_PerfProc_Process"})
  {
    const auto instances = Query(name);
    for (const auto& instance : instances)
    {
      for (std::size_t i = 0; i < instance.elements.size(); ++i)
      {
        if (instance.elements[i].value)
        {
          EXPECT_EQ(cim::TypeOf(*instance.elements[i].value), instance.decl->properties[i].type);
        }
      }
    }
  }
  const auto processors = Query(L"Win32_PerfRawData_PerfOS_Processor");
  EXPECT_EQ(processors.size(), static_cast<std::size_t>(sysconf(_SC_NPROCESSORS_ONLN)) + 1);
  EXPECT_NE(FindByName(Query(L"Win32_PerfRawData_PerfDisk_PhysicalDisk"), L"_Total"), nullptr);
}

// A mount point as /proc/mounts writes it: space, tab, newline and backslash as octal escapes.
std::string UnescapeMountField(const std::string& field)
{
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i)
  {
    if (field[i] == '\\' && i + 3 < field.size())
    {
      text += static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8));
      i += 3;
    }
    else
    {
      text += field[i];
    }
  }
  return text;
}

// Every file system on a block device that this machine shows in /proc/mounts, with blocks by
// statvfs, is a Win32_LogicalDisk. A chroot or container may show none: then there is nothing
// to compare with, and the test says so instead of passing silently.
TEST(MachineTruth, LogicalDisksAreTheBlockDeviceFileSystemsOfThisMachine)
{
  // The last mount on a mount point is the one that is seen there.
  std::map<std::string, std::string> sourceOf;
  std::istringstream mounts(ReadFile("/proc/mounts"));
  for (std::string line; std::getline(mounts, line);)
  {
    std::istringstream fields(line);
    std::string source;
    std::string mountPoint;
    fields >> source >> mountPoint;
    sourceOf[UnescapeMountField(mountPoint)] = source;
  }
  std::vector<std::string> expected;
  for (const auto& [mountPoint, source] : sourceOf)
  {
    struct statvfs stats{};
    const bool ascii = std::all_of(mountPoint.begin(), mountPoint.end(), [](char c) { return c > 0; });
    if (source.rfind("/dev/", 0) == 0 && ascii && statvfs(mountPoint.c_str(), &stats) == 0 && stats.f_blocks > 0)
    {
      expected.push_back(mountPoint);
    }
  }
  const auto disks = Query(L"Win32_LogicalDisk");
  if (expected.empty())
  {
    GTEST_SKIP() << "/proc/mounts shows no file system on a block device with blocks (" << disks.size()
                 << " Win32_LogicalDisk instances); nothing to compare with here";
  }
  EXPECT_FALSE(disks.empty());
  for (const auto& mountPoint : expected)
  {
    EXPECT_NE(FindByName(disks, std::wstring(mountPoint.begin(), mountPoint.end())), nullptr) << mountPoint;
  }
}

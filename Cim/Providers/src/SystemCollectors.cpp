// Collectors of the machine description classes: operating system, computer, logical disks.
#include "Cim/Machine/Classes.h"
#include "Cim/Names.h"
#include "Cim/Provider.h"
#include "Collectors.h"
#include "ProcFiles.h"

#include <dirent.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <ctime>
#include <memory>

namespace cim::machine
{
namespace
{
UnameFacts ReadUname()
{
  struct utsname names{};
  if (uname(&names) != 0)
    return {};
  return {names.sysname, names.nodename, names.release, names.version, names.machine};
}

NamedNumbers ReadMeminfo()
{
  std::string text;
  if (!ReadText("/proc/meminfo", text))
    FailToRead("/proc/meminfo");
  return ParseMeminfo(text);
}

WallClock ReadWallClock()
{
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  WallClock clock;
  clock.seconds = now.tv_sec;
  clock.microseconds = static_cast<std::uint32_t>(now.tv_nsec / 1000);
  clock.utcOffsetMinutes = LocalOffsetMinutes(clock.seconds);
  return clock;
}

// udev writes blanks and other unsafe characters of a label as \xHH.
std::string DecodeLabel(std::string_view name)
{
  std::string label;
  for (std::size_t i = 0; i < name.size(); ++i)
  {
    if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x')
    {
      const auto hex = [](char ch) {
        return ch >= '0' && ch <= '9' ? ch - '0' : ch >= 'a' && ch <= 'f' ? ch - 'a' + 10 : ch >= 'A' && ch <= 'F' ? ch - 'A' + 10 : -1;
      };
      const int high = hex(name[i + 2]);
      const int low = hex(name[i + 3]);
      if (high >= 0 && low >= 0)
      {
        label.push_back(static_cast<char>(high * 16 + low));
        i += 3;
        continue;
      }
    }
    label.push_back(name[i]);
  }
  return label;
}

struct DirCloser
{
  void operator()(DIR* dir) const { closedir(dir); }
};

// Device path ("/dev/sda1") to volume label, from the links udev keeps.
std::map<std::string, std::string, std::less<>> ReadLabels()
{
  std::map<std::string, std::string, std::less<>> labels;
  const std::unique_ptr<DIR, DirCloser> dir(opendir("/dev/disk/by-label"));
  if (!dir)
    return labels;
  while (const dirent* entry = readdir(dir.get()))
  {
    const std::string_view name(entry->d_name);
    if (name == "." || name == "..")
      continue;
    const auto target = ReadLink(("/dev/disk/by-label/" + std::string(name)).c_str());
    if (!target)
      continue;
    const auto slash = target->rfind('/');
    labels["/dev/" + target->substr(slash == std::string::npos ? 0 : slash + 1)] = DecodeLabel(name);
  }
  return labels;
}
} // namespace

void CollectOperatingSystem(std::vector<Instance>& out)
{
  OperatingSystemFacts facts;
  facts.uname = ReadUname();
  std::string text;
  if (ReadText("/etc/os-release", text) || ReadText("/usr/lib/os-release", text))
    facts.osRelease = ParseOsRelease(text);
  facts.meminfo = ReadMeminfo();
  if (ReadText("/proc/stat", text))
    facts.bootTime = ParseProcStat(text).bootTime;
  facts.processCount = CountProcesses();
  facts.now = ReadWallClock();
  BuildOperatingSystem(facts, out);
}

void CollectComputerSystem(std::vector<Instance>& out)
{
  ComputerSystemFacts facts;
  facts.uname = ReadUname();
  char domain[256] = {};
  if (getdomainname(domain, sizeof(domain) - 1) == 0)
    facts.nisDomain = domain;
  std::string text;
  if (ReadText("/proc/cpuinfo", text))
    facts.cpu = ParseCpuinfo(text);
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  facts.onlineProcessors = online > 0 ? static_cast<std::uint32_t>(online) : 0;
  facts.meminfo = ReadMeminfo();
  facts.vendor = ReadLine("/sys/class/dmi/id/sys_vendor");
  facts.product = ReadLine("/sys/class/dmi/id/product_name");
  facts.family = ReadLine("/sys/class/dmi/id/product_family");
  facts.utcOffsetMinutes = ReadWallClock().utcOffsetMinutes;
  BuildComputerSystem(facts, out);
}

void CollectLogicalDisks(std::vector<Instance>& out)
{
  std::string text;
  if (!ReadText("/proc/self/mounts", text))
    FailToRead("/proc/self/mounts");
  const auto labels = ReadLabels();
  std::vector<MountFacts> mounts;
  for (auto& mount : ParseMounts(text))
  {
    MountFacts facts;
    if (IsReportedFileSystem(mount.fsType))
    {
      struct statvfs stats{};
      if (statvfs(mount.mountPoint.c_str(), &stats) == 0)
        facts.stats = FileSystemStats{stats.f_blocks, stats.f_bavail, stats.f_frsize, stats.f_namemax,
                                      (stats.f_flag & ST_RDONLY) != 0};
      if (const auto label = labels.find(mount.source); label != labels.end())
        facts.label = label->second;
    }
    facts.mount = std::move(mount);
    mounts.push_back(std::move(facts));
  }
  BuildLogicalDisks(mounts, Hosts::MachineName(), out);
}
} // namespace cim::machine

#include "Cim/Machine/DeviceParsers.h"

#include "Text.h"

namespace cim::machine
{
using namespace text;

std::vector<DiskStat> ParseDiskstats(std::string_view text)
{
  std::vector<DiskStat> disks;
  ForEachLine(text, [&](std::string_view line) {
    DiskStat disk;
    const auto major = ToNumber<std::uint32_t>(NextField(line));
    const auto minor = ToNumber<std::uint32_t>(NextField(line));
    const auto name = NextField(line);
    if (!major || !minor || name.empty())
      return;
    disk.major = *major;
    disk.minor = *minor;
    disk.name = name;
    std::uint64_t* fields[] = {&disk.reads, &disk.readsMerged, &disk.sectorsRead, &disk.msReading,
                               &disk.writes, &disk.writesMerged, &disk.sectorsWritten, &disk.msWriting,
                               &disk.inFlight, &disk.msIo, &disk.msWeighted};
    for (auto* field : fields)
    {
      const auto number = ToNumber<std::uint64_t>(NextField(line));
      if (!number)
        return; // a truncated line is not a disk we can report truly
      *field = *number;
    }
    disks.push_back(std::move(disk));
  });
  return disks;
}

std::vector<NetDevStat> ParseNetDev(std::string_view text)
{
  std::vector<NetDevStat> interfaces;
  ForEachLine(text, [&](std::string_view line) {
    // The two header lines have '|' and no ':' before it; data lines are "name: numbers".
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
      return;
    NetDevStat dev;
    dev.name = Trim(line.substr(0, colon));
    if (dev.name.empty() || dev.name.find('|') != std::string::npos)
      return;
    auto rest = line.substr(colon + 1);
    std::uint64_t* fields[] = {&dev.rxBytes, &dev.rxPackets, &dev.rxErrors, &dev.rxDropped,
                               &dev.rxFifo, &dev.rxFrame, &dev.rxCompressed, &dev.rxMulticast,
                               &dev.txBytes, &dev.txPackets, &dev.txErrors, &dev.txDropped,
                               &dev.txFifo, &dev.txCollisions, &dev.txCarrier, &dev.txCompressed};
    for (auto* field : fields)
    {
      const auto number = ToNumber<std::uint64_t>(NextField(rest));
      if (!number)
        return;
      *field = *number;
    }
    interfaces.push_back(std::move(dev));
  });
  return interfaces;
}

namespace
{
// The kernel writes blank, tab, line feed and backslash in mount fields as \ooo.
std::string DecodeOctal(std::string_view field)
{
  std::string out;
  out.reserve(field.size());
  for (std::size_t i = 0; i < field.size(); ++i)
  {
    if (field[i] == '\\' && i + 3 < field.size())
    {
      const auto digits = field.substr(i + 1, 3);
      if (digits.size() == 3 && digits[0] >= '0' && digits[0] <= '3' && digits[1] >= '0' &&
          digits[1] <= '7' && digits[2] >= '0' && digits[2] <= '7')
      {
        out.push_back(static_cast<char>((digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0')));
        i += 3;
        continue;
      }
    }
    out.push_back(field[i]);
  }
  return out;
}
} // namespace

bool MountEntry::ReadOnly() const
{
  std::string_view rest(options);
  while (!rest.empty())
  {
    const auto comma = rest.find(',');
    if (rest.substr(0, comma) == "ro")
      return true;
    if (comma == std::string_view::npos)
      break;
    rest.remove_prefix(comma + 1);
  }
  return false;
}

std::vector<MountEntry> ParseMounts(std::string_view text)
{
  std::vector<MountEntry> mounts;
  ForEachLine(text, [&](std::string_view line) {
    MountEntry entry;
    entry.source = DecodeOctal(NextField(line));
    entry.mountPoint = DecodeOctal(NextField(line));
    entry.fsType = NextField(line);
    entry.options = NextField(line);
    if (entry.source.empty() || entry.mountPoint.empty() || entry.fsType.empty())
      return;
    mounts.push_back(std::move(entry));
  });
  return mounts;
}
} // namespace cim::machine

// Pure parsers of the device texts of /proc: diskstats, net/dev and mounts.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cim::machine
{
// One line of /proc/diskstats (sectors are 512 bytes whatever the device's sector size).
struct DiskStat
{
  std::uint32_t major = 0, minor = 0;
  std::string name;
  std::uint64_t reads = 0, readsMerged = 0, sectorsRead = 0, msReading = 0;
  std::uint64_t writes = 0, writesMerged = 0, sectorsWritten = 0, msWriting = 0;
  std::uint64_t inFlight = 0, msIo = 0, msWeighted = 0;
};
std::vector<DiskStat> ParseDiskstats(std::string_view text);

// One interface of /proc/net/dev.
struct NetDevStat
{
  std::string name;
  std::uint64_t rxBytes = 0, rxPackets = 0, rxErrors = 0, rxDropped = 0, rxFifo = 0, rxFrame = 0,
                rxCompressed = 0, rxMulticast = 0;
  std::uint64_t txBytes = 0, txPackets = 0, txErrors = 0, txDropped = 0, txFifo = 0, txCollisions = 0,
                txCarrier = 0, txCompressed = 0;
};
std::vector<NetDevStat> ParseNetDev(std::string_view text);

// One line of /proc/mounts, with the kernel's octal escapes (\040 for a blank) decoded.
struct MountEntry
{
  std::string source, mountPoint, fsType, options;
  bool ReadOnly() const;
};
std::vector<MountEntry> ParseMounts(std::string_view text);
} // namespace cim::machine

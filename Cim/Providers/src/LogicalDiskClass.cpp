// Win32_LogicalDisk from /proc/mounts, statvfs and /dev/disk/by-label. A Linux mount point
// stands where Windows has a drive letter.
//
// | Property               | MI type | Linux source                                         |
// |------------------------|---------|------------------------------------------------------|
// | DeviceID, Name, Caption| string  | the mount point                                      |
// | FileSystem             | string  | the file system type as the kernel names it (ext4, xfs, nfs4...) |
// | Size                   | uint64  | f_blocks × f_frsize                                  |
// | FreeSpace              | uint64  | f_bavail × f_frsize (what an ordinary user may still write) |
// | DriveType              | uint32  | 4 network file systems, 5 iso9660/udf, else 3        |
// | Description            | string  | "Local Fixed Disk", "Network Connection", "CD-ROM Disc" |
// | MediaType              | uint32  | 12 (fixed hard disk) for local disks, else null      |
// | ProviderName           | string  | the mount source of a network file system           |
// | VolumeName             | string  | the label in /dev/disk/by-label, else null           |
// | Access                 | uint16  | 1 read-only, 3 read/write                            |
// | MaximumComponentLength | uint32  | f_namemax                                            |
// | Compressed             | boolean | false                                                |
// | SystemName             | string  | host name                                            |
// | CreationClassName      | string  | "Win32_LogicalDisk"                                  |
// Pseudo file systems (proc, sysfs, cgroup, tmpfs...) and file systems of no blocks are not reported.
#include "ClassBuilder.h"
#include "Cim/Machine/Classes.h"
#include "Cim/Names.h"

#include <array>
#include <limits>

namespace cim::machine
{
namespace
{
enum P : std::size_t
{
  DeviceID, Name, Caption, FileSystem, Size, FreeSpace, DriveType, Description, MediaType, ProviderName,
  VolumeName, Access, MaximumComponentLength, Compressed, SystemName, CreationClassName, Count
};

constexpr std::array<std::string_view, 29> PseudoFileSystems = {
    "proc", "sysfs", "devtmpfs", "devpts", "tmpfs", "ramfs", "cgroup", "cgroup2", "securityfs", "debugfs",
    "tracefs", "pstore", "bpf", "autofs", "configfs", "fusectl", "hugetlbfs", "mqueue", "binfmt_misc", "nsfs",
    "rpc_pipefs", "selinuxfs", "efivarfs", "fuse.gvfsd-fuse", "fuse.portal", "rootfs", "squashfs",
    "nfsd", "sockfs"};
constexpr std::array<std::string_view, 10> NetworkFileSystems = {
    "nfs", "nfs4", "cifs", "smb3", "smbfs", "fuse.sshfs", "ceph", "glusterfs", "9p", "afs"};
} // namespace

bool IsReportedFileSystem(std::string_view fsType)
{
  for (const auto pseudo : PseudoFileSystems)
  {
    if (fsType == pseudo)
      return false;
  }
  return !fsType.empty();
}

std::uint32_t DriveTypeOf(std::string_view fsType)
{
  for (const auto network : NetworkFileSystems)
  {
    if (fsType == network)
      return 4;
  }
  if (fsType == "iso9660" || fsType == "udf")
    return 5;
  return 3;
}

std::shared_ptr<const ClassDecl> LogicalDiskClass()
{
  static const auto decl = MakeClass(L"Win32_LogicalDisk", Count, {
      {L"DeviceID", Type::String, 0, true},
      {L"Name", Type::String},
      {L"Caption", Type::String},
      {L"FileSystem", Type::String},
      {L"Size", Type::UInt64},
      {L"FreeSpace", Type::UInt64},
      {L"DriveType", Type::UInt32},
      {L"Description", Type::String},
      {L"MediaType", Type::UInt32},
      {L"ProviderName", Type::String},
      {L"VolumeName", Type::String},
      {L"Access", Type::UInt16},
      {L"MaximumComponentLength", Type::UInt32},
      {L"Compressed", Type::Boolean},
      {L"SystemName", Type::String},
      {L"CreationClassName", Type::String},
  });
  return decl;
}

void BuildLogicalDisks(const std::vector<MountFacts>& mounts, const std::wstring& hostName, std::vector<Instance>& out)
{
  for (std::size_t i = 0; i < mounts.size(); ++i)
  {
    const auto& facts = mounts[i];
    if (!IsReportedFileSystem(facts.mount.fsType))
      continue;
    // A file system with no blocks holds no data: a pseudo file system this list does not know.
    if (facts.stats && facts.stats->blocks == 0)
      continue;
    // Only the last mount on a mount point is visible; earlier ones are hidden under it.
    bool hidden = false;
    for (std::size_t j = i + 1; j < mounts.size() && !hidden; ++j)
      hidden = mounts[j].mount.mountPoint == facts.mount.mountPoint;
    if (hidden)
      continue;

    auto& disk = out.emplace_back(LogicalDiskClass());
    const auto id = Widen(facts.mount.mountPoint);
    Put(disk, DeviceID, id);
    Put(disk, Name, id);
    Put(disk, Caption, id);
    Put(disk, FileSystem, Widen(facts.mount.fsType));
    const auto type = DriveTypeOf(facts.mount.fsType);
    Put(disk, DriveType, type);
    Put(disk, Description, std::wstring(type == 4 ? L"Network Connection" : type == 5 ? L"CD-ROM Disc" : L"Local Fixed Disk"));
    if (type == 3)
      Put(disk, MediaType, std::uint32_t{12});
    if (type == 4)
      Put(disk, ProviderName, Widen(facts.mount.source));
    if (facts.label)
      Put(disk, VolumeName, Widen(*facts.label));
    bool readOnly = facts.mount.ReadOnly();
    if (facts.stats)
    {
      Put(disk, Size, facts.stats->blocks * facts.stats->fragmentSize);
      Put(disk, FreeSpace, facts.stats->blocksAvailable * facts.stats->fragmentSize);
      const auto nameMax = facts.stats->nameMax;
      Put(disk, MaximumComponentLength,
          static_cast<std::uint32_t>(nameMax > std::numeric_limits<std::uint32_t>::max() ? 0 : nameMax));
      readOnly = readOnly || facts.stats->readOnly;
    }
    Put(disk, Access, std::uint16_t{readOnly ? std::uint16_t{1} : std::uint16_t{3}});
    Put(disk, Compressed, false);
    if (!hostName.empty())
      Put(disk, SystemName, hostName);
    Put(disk, CreationClassName, std::wstring(L"Win32_LogicalDisk"));
  }
}
} // namespace cim::machine

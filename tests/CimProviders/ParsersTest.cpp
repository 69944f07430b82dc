// Golden tests of the machine parsers on captured texts (tests/CimProviders/data).
#include "Cim/Machine/DeviceParsers.h"
#include "Cim/Machine/ProcessParsers.h"
#include "Cim/Machine/SystemParsers.h"
#include "GoldenData.h"

#include <gtest/gtest.h>

using namespace cim::machine;

TEST(SystemParsers, OsReleaseUnquotesAndSkipsNoise)
{
  const auto debian = ParseOsRelease(GoldenText("os-release"));
  EXPECT_EQ(debian.at("PRETTY_NAME"), "Debian GNU/Linux 12 (bookworm)");
  EXPECT_EQ(debian.at("VERSION_ID"), "12");
  EXPECT_EQ(debian.at("ID"), "debian");

  const auto quoted = ParseOsRelease(GoldenText("os-release_quoted"));
  EXPECT_EQ(quoted.at("NAME"), "Example Linux");
  EXPECT_EQ(quoted.at("VERSION"), "2.0 \"Quoted\"");
  EXPECT_EQ(quoted.at("VENDOR_NAME"), "Example Corp");
  EXPECT_EQ(quoted.at("PRETTY_NAME"), "");
  EXPECT_EQ(quoted.count("broken line without equals"), 0u);
  EXPECT_EQ(quoted.size(), 5u);
}

TEST(SystemParsers, Meminfo)
{
  const auto mem = ParseMeminfo(GoldenText("meminfo"));
  EXPECT_EQ(Lookup(mem, "MemTotal"), 24684084u);
  EXPECT_EQ(Lookup(mem, "MemAvailable"), 23316316u);
  EXPECT_EQ(Lookup(mem, "SwapTotal"), 0u);
  EXPECT_EQ(Lookup(mem, "Committed_AS"), 1355776u);
  EXPECT_FALSE(Lookup(mem, "NoSuchField").has_value());
}

TEST(SystemParsers, VmstatAndLoadavg)
{
  const auto vm = ParseVmstat(GoldenText("vmstat"));
  EXPECT_EQ(Lookup(vm, "pgfault"), 27966725u);
  EXPECT_EQ(Lookup(vm, "pgmajfault"), 1850u);
  const auto load = ParseLoadavg(GoldenText("loadavg"));
  ASSERT_TRUE(load.has_value());
  EXPECT_EQ(load->runnable, 4u);
  EXPECT_EQ(load->threads, 109u);
  EXPECT_FALSE(ParseLoadavg("0.1 0.2 0.3").has_value());
  EXPECT_FALSE(ParseLoadavg("0.1 0.2 0.3 x/y 7").has_value());
}

TEST(SystemParsers, Cpuinfo)
{
  const auto cpu = ParseCpuinfo(GoldenText("cpuinfo"));
  EXPECT_EQ(cpu.logicalProcessors, 2u);
  EXPECT_EQ(cpu.packages, 1u);
  EXPECT_EQ(cpu.vendor, "AuthenticAMD");
  EXPECT_EQ(cpu.modelName, "AMD EPYC");
  EXPECT_TRUE(cpu.hypervisor);
  // ARM kernels write neither "physical id" nor the x86 flags.
  const auto arm = ParseCpuinfo("processor\t: 0\nBogoMIPS\t: 50.00\n\nprocessor\t: 1\n");
  EXPECT_EQ(arm.logicalProcessors, 2u);
  EXPECT_EQ(arm.packages, 0u);
  EXPECT_FALSE(arm.hypervisor);
}

TEST(SystemParsers, ProcStat)
{
  const auto stat = ParseProcStat(GoldenText("stat"));
  ASSERT_TRUE(stat.total.has_value());
  EXPECT_EQ(stat.total->user, 108051u);
  EXPECT_EQ(stat.total->idle, 153015u);
  EXPECT_EQ(stat.total->iowait, 2184u);
  EXPECT_EQ(stat.total->steal, 174u);
  EXPECT_EQ(stat.total->Idle(), 155199u);
  EXPECT_EQ(stat.total->Total(), 108051u + 15414 + 153015 + 2184 + 85 + 174);
  ASSERT_EQ(stat.cpus.size(), 2u);
  EXPECT_EQ(stat.cpus[1].first, 1u);
  EXPECT_EQ(stat.cpus[1].second.system, 8473u);
  EXPECT_EQ(stat.interrupts, 559048u);
  EXPECT_EQ(stat.contextSwitches, 808660u);
  EXPECT_EQ(stat.bootTime, 1795316832u);
  EXPECT_EQ(stat.forks, 21527u);
  EXPECT_EQ(stat.procsRunning, 4u);
  EXPECT_EQ(stat.procsBlocked, 0u);
}

TEST(SystemParsers, ProcStatOfAnOldKernelLeavesMissingFieldsZero)
{
  const auto stat = ParseProcStat("cpu  10 20 30 40\ncpu0 10 20 30 40\n");
  ASSERT_TRUE(stat.total.has_value());
  EXPECT_EQ(stat.total->idle, 40u);
  EXPECT_EQ(stat.total->iowait, 0u);
  EXPECT_FALSE(stat.bootTime.has_value());
}

TEST(SystemParsers, InterruptsSumEachCpuColumn)
{
  const auto perCpu = ParseInterrupts(GoldenText("interrupts"));
  ASSERT_EQ(perCpu.size(), 2u);
  EXPECT_EQ(perCpu.at(0), 258357u);
  EXPECT_EQ(perCpu.at(1), 310560u);
  EXPECT_TRUE(ParseInterrupts("").empty());
}

TEST(DeviceParsers, Diskstats)
{
  const auto disks = ParseDiskstats(GoldenText("diskstats"));
  ASSERT_EQ(disks.size(), 10u);
  const auto& vda = disks[8];
  EXPECT_EQ(vda.name, "vda");
  EXPECT_EQ(vda.major, 254u);
  EXPECT_EQ(vda.reads, 43670u);
  EXPECT_EQ(vda.sectorsRead, 4102626u);
  EXPECT_EQ(vda.msReading, 110146u);
  EXPECT_EQ(vda.writes, 28554u);
  EXPECT_EQ(vda.sectorsWritten, 7134784u);
  EXPECT_EQ(vda.msWriting, 138169u);
  EXPECT_EQ(vda.inFlight, 0u);
  EXPECT_EQ(vda.msIo, 48000u);
  EXPECT_EQ(vda.msWeighted, 256733u);
  // A truncated line is dropped rather than reported with made-up zeros.
  EXPECT_TRUE(ParseDiskstats("   8 0 sda 1 2 3\n").empty());
}

TEST(DeviceParsers, NetDev)
{
  const auto devs = ParseNetDev(GoldenText("net_dev"));
  ASSERT_EQ(devs.size(), 4u);
  EXPECT_EQ(devs[0].name, "lo");
  const auto& eth0 = devs[3];
  EXPECT_EQ(eth0.name, "eth0");
  EXPECT_EQ(eth0.rxBytes, 20302920u);
  EXPECT_EQ(eth0.rxPackets, 535u);
  EXPECT_EQ(eth0.txBytes, 32685u);
  EXPECT_EQ(eth0.txPackets, 382u);
}

TEST(DeviceParsers, MountsDecodeEscapes)
{
  const auto mounts = ParseMounts(GoldenText("mounts"));
  ASSERT_EQ(mounts.size(), 10u);
  EXPECT_EQ(mounts[2].source, "/dev/sda2");
  EXPECT_EQ(mounts[2].mountPoint, "/");
  EXPECT_EQ(mounts[2].fsType, "ext4");
  EXPECT_FALSE(mounts[2].ReadOnly());
  EXPECT_EQ(mounts[5].mountPoint, "/mnt/My Data");
  EXPECT_TRUE(mounts[5].ReadOnly());
  EXPECT_EQ(ParseMounts("a /x\\134y t rw 0 0\n").at(0).mountPoint, "/x\\y");
  EXPECT_EQ(ParseMounts("a /x\\9 t rw 0 0\n").at(0).mountPoint, "/x\\9");
  EXPECT_FALSE(ParseMounts("a /x t rw,rox 0 0\n").at(0).ReadOnly());
}

TEST(ProcessParsers, Stat)
{
  const auto stat = ParseProcessStat(GoldenText("pid_stat"));
  ASSERT_TRUE(stat.has_value());
  EXPECT_EQ(stat->pid, 1u);
  EXPECT_EQ(stat->comm, "process_api");
  EXPECT_EQ(stat->state, 'S');
  EXPECT_EQ(stat->ppid, 0u);
  EXPECT_EQ(stat->minorFaults, 47485u);
  EXPECT_EQ(stat->majorFaults, 0u);
  EXPECT_EQ(stat->userTicks, 122u);
  EXPECT_EQ(stat->systemTicks, 592u);
  EXPECT_EQ(stat->priority, 10);
  EXPECT_EQ(stat->nice, -10);
  EXPECT_EQ(stat->threads, 13u);
  EXPECT_EQ(stat->startTicks, 25u);
  EXPECT_EQ(stat->virtualBytes, 51920896u);
  EXPECT_EQ(stat->residentPages, 4856u);
}

TEST(ProcessParsers, StatWithBlanksAndParenthesesInTheName)
{
  const auto stat = ParseProcessStat(GoldenText("pid_stat_odd_name"));
  ASSERT_TRUE(stat.has_value());
  EXPECT_EQ(stat->pid, 4242u);
  EXPECT_EQ(stat->comm, "my (odd) name");
  EXPECT_EQ(stat->state, 'R');
  EXPECT_EQ(stat->ppid, 1u);
  EXPECT_EQ(stat->session, 4200u);
  EXPECT_EQ(stat->minorFaults, 1500u);
  EXPECT_EQ(stat->majorFaults, 25u);
  EXPECT_EQ(stat->userTicks, 300u);
  EXPECT_EQ(stat->systemTicks, 120u);
  EXPECT_EQ(stat->threads, 3u);
  EXPECT_EQ(stat->startTicks, 12345u);
  EXPECT_EQ(stat->residentPages, 2560u);
}

TEST(ProcessParsers, StatRejectsDamagedText)
{
  EXPECT_FALSE(ParseProcessStat("").has_value());
  EXPECT_FALSE(ParseProcessStat("12 (name R 1 2 3").has_value());
  EXPECT_FALSE(ParseProcessStat("12 (name) R 1 2 3").has_value());
  EXPECT_FALSE(ParseProcessStat("x (name) R 1 4242 4200 0 -1 4194304 1500 0 25 0 300 120 0 0 20 0 3 0 12345 1 2").has_value());
}

TEST(ProcessParsers, StatusStatmCmdline)
{
  const auto status = ParseProcessStatus(GoldenText("pid_status"));
  EXPECT_EQ(status.vmPeak, 3060u);
  EXPECT_EQ(status.vmHwm, 1780u);
  EXPECT_EQ(status.vmData, 360u);
  EXPECT_EQ(status.vmStk, 132u);
  EXPECT_EQ(status.uid, 0u);
  // Kernel threads have no Vm lines.
  EXPECT_FALSE(ParseProcessStatus("Name:\tkthreadd\nUid:\t0\t0\t0\t0\n").vmPeak.has_value());

  const auto statm = ParseProcessStatm(GoldenText("pid_statm"));
  ASSERT_TRUE(statm.has_value());
  EXPECT_EQ(statm->size, 765u);
  EXPECT_EQ(statm->resident, 431u);
  EXPECT_EQ(statm->shared, 402u);
  EXPECT_EQ(statm->data, 123u);
  EXPECT_FALSE(ParseProcessStatm("1 2").has_value());

  EXPECT_EQ(ParseCmdline(GoldenText("pid_cmdline")), "/usr/bin/python3 -c print(\"hi there\")");
  EXPECT_EQ(ParseCmdline(std::string("\0\0", 2)), "");
}

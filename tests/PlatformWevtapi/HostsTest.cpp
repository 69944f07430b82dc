#include "TestSupport.h"
#include "WinEvt/Hosts.h"

#include <gtest/gtest.h>

#include <fstream>

namespace
{
using namespace natc::winevt;
using wevtapi_test::TempHost;

TEST(Hosts, AbsoluteDirectoryNamesItself)
{
  TempHost host;
  EXPECT_EQ(ResolveHost(host.WidePath().c_str(), "box"), host.Path().string());
}

TEST(Hosts, MissingDirectoryResolvesToNothing)
{
  EXPECT_FALSE(ResolveHost(L"/no/such/natc/directory", "box"));
}

TEST(Hosts, LocalNamesUseTheConfiguredDirectory)
{
  const std::string local = LocalLogDirectory();
  for (const wchar_t* name : {L"", L"localhost", L"LOCALHOST", L".", L"box", L"Box.example.org"})
    EXPECT_EQ(ResolveHost(name, "box.example.org"), local) << name;
  EXPECT_EQ(ResolveHost(nullptr, "box"), local);
}

TEST(Hosts, OtherNamesResolveToNothing)
{
  for (const wchar_t* name : {L"dc01", L"10.0.0.1", L"relative/dir", L"boxer"})
    EXPECT_FALSE(ResolveHost(name, "box")) << name;
}

TEST(Hosts, LocalDirectoryComesFromTheEnvironment)
{
  const char* saved = std::getenv(NATC_EVENT_LOG_DIR_VARIABLE);
  const std::string previous = saved ? saved : "";
  setenv(NATC_EVENT_LOG_DIR_VARIABLE, "/tmp/some-logs", 1);
  EXPECT_EQ(LocalLogDirectory(), "/tmp/some-logs");
  unsetenv(NATC_EVENT_LOG_DIR_VARIABLE);
  EXPECT_EQ(LocalLogDirectory(), NATC_EVENT_LOG_DIR_DEFAULT);
  if (saved)
    setenv(NATC_EVENT_LOG_DIR_VARIABLE, previous.c_str(), 1);
}

TEST(Channels, SlashBecomesPercentFour)
{
  EXPECT_EQ(ChannelFileName(L"Microsoft-Windows-Sysmon/Operational"), "Microsoft-Windows-Sysmon%4Operational.evtx");
  EXPECT_EQ(ChannelFileName(L"System"), "System.evtx");
}

TEST(Channels, FoundIgnoringCase)
{
  TempHost host;
  std::ofstream(host.File("Microsoft-Windows-Sysmon%4Operational.evtx")) << "x";
  EXPECT_EQ(FindChannelFile(host.Path().string(), L"Microsoft-Windows-Sysmon/Operational"),
            host.File("Microsoft-Windows-Sysmon%4Operational.evtx"));
  EXPECT_EQ(FindChannelFile(host.Path().string(), L"microsoft-windows-sysmon/operational"),
            host.File("Microsoft-Windows-Sysmon%4Operational.evtx"));
  EXPECT_FALSE(FindChannelFile(host.Path().string(), L"Security"));
}
} // namespace

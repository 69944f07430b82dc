// Where natc keeps its demo logs on Windows: the user's temporary folder, which GetTempPathW
// takes from TMP first: https://learn.microsoft.com/en-us/windows/win32/api/fileapi/nf-fileapi-gettemppathw
#include "run/DemoLogs.h"
#include "TestSupport/TempDirectory.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

TEST(DemoLogsTest, DirectoryIsInTheUsersTemporaryFolder)
{
  const TempDirectory folder("natc-tmp");
  wchar_t saved[MAX_PATH + 1] = {};
  const DWORD savedSize = GetEnvironmentVariableW(L"TMP", saved, MAX_PATH + 1);
  ASSERT_TRUE(SetEnvironmentVariableW(L"TMP", folder.Path().wstring().c_str()));
  // XDG_CACHE_HOME is a Linux convention; Windows does not look at it.
  SetEnvironmentVariableW(L"XDG_CACHE_HOME", L"/somewhere/cache");
  const std::string directory = natc::run::DemoLogDirectory();
  SetEnvironmentVariableW(L"XDG_CACHE_HOME", nullptr);
  SetEnvironmentVariableW(L"TMP", savedSize > 0 && savedSize <= MAX_PATH ? saved : nullptr);
  EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(directory).parent_path(), folder.Path()));
  EXPECT_EQ(std::filesystem::path(directory).filename(), "natc-demo-logs");
}

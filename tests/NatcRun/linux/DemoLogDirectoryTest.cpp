// Where natc keeps its demo logs on Linux: the user's cache folder (XDG_CACHE_HOME).
#include "run/DemoLogs.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

TEST(DemoLogsTest, DirectoryFollowsXdgCacheHome)
{
  const char* previous = std::getenv("XDG_CACHE_HOME");
  const std::string saved = previous ? previous : "";
  setenv("XDG_CACHE_HOME", "/somewhere/cache", 1);
  EXPECT_EQ(natc::run::DemoLogDirectory(), "/somewhere/cache/natc/demo-logs");
  if (previous)
  {
    setenv("XDG_CACHE_HOME", saved.c_str(), 1);
  }
  else
  {
    unsetenv("XDG_CACHE_HOME");
  }
}

#include "KeldaKernel/Logger.h"

#include <gtest/gtest.h>

// This test runs with NATC_LOG_LEVEL=debug set in its environment.
TEST(LoggerEnvironment, InitialLevelComesFromEnvironment)
{
  EXPECT_EQ(CKeldaLogger::instance().level(), ELogLevel::Debug);
}

// The MinGW-w64 build binds mi.dll at run time: where the system has none (Wine), creating the MI
// application fails with a clear error instead of the collector failing to load.
#include "MiApplication.h"
#include "MiException.h"
#include "SystemMi.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

TEST(MiBinding, WithoutMiDllTheApplicationFailsWithNotSupported)
{
  if (SystemHasMi())
    GTEST_SKIP() << "this system has mi.dll";
  try
  {
    (void)CMiApplication::CreateInstance();
    FAIL() << "CreateInstance succeeded without mi.dll";
  }
  catch (const CMiException& e)
  {
    EXPECT_NE(std::string(e.what()).find("MI_Application_Initialize"), std::string::npos) << e.what();
  }
}

TEST(MiBinding, InitializeWithoutMiDllLeavesANullApplication)
{
  if (SystemHasMi())
    GTEST_SKIP() << "this system has mi.dll";
  MI_Application application{1, 2, nullptr};
  MI_Instance* extendedError = reinterpret_cast<MI_Instance*>(&application);
  EXPECT_EQ(MI_Application_InitializeV1(0, nullptr, &extendedError, &application), MI_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(application.ft, nullptr);
  EXPECT_EQ(application.reserved1, 0u);
  EXPECT_EQ(extendedError, nullptr);
}

// A test host "mitest" with one class, an open MI application, and helpers that call the MI API
// exactly as a client does (through the inline wrappers only).
#pragma once

#include "Platform/Mi.h"

#include "Cim/Testing/ClassBuilder.h"
#include "Cim/Testing/MiFaults.h"
#include "Cim/Testing/TestHost.h"

#include <gtest/gtest.h>

#include <string>

namespace mitest
{
struct Pulled
{
  MI_Result call = MI_RESULT_OK;
  const MI_Instance* instance = nullptr;
  MI_Boolean more = MI_FALSE;
  MI_Result result = MI_RESULT_OK;
  std::wstring message;
  bool hasMessage = false;
};

inline Pulled Pull(MI_Operation& operation)
{
  Pulled pulled;
  const MI_Char* message = nullptr;
  const MI_Instance* details = nullptr;
  pulled.call = MI_Operation_GetInstance(&operation, &pulled.instance, &pulled.more, &pulled.result, &message, &details);
  if (message)
  {
    pulled.hasMessage = true;
    pulled.message = message;
  }
  return pulled;
}

class MiTest : public ::testing::Test
{
protected:
  void SetUp() override
  {
    cim::testing::MiMonitor().ClearHistory();
    m_baseline = cim::testing::MiMonitor().Live();
    ASSERT_EQ(MI_Application_InitializeV1(0, nullptr, nullptr, &application), MI_RESULT_OK);
    provider = host.AddClass(cim::testing::ClassBuilder(L"Test_Thing")
                                 .Key(L"Name")
                                 .Property(L"Count", cim::Type::UInt32, {{L"CounterType", std::uint32_t{65536}}})
                                 .Property(L"Note", cim::Type::String)
                                 .Build());
  }

  void TearDown() override
  {
    MI_Application_Close(&application);
    const auto live = cim::testing::MiMonitor().Live();
    // Every test leaves every handle closed.
    EXPECT_EQ(live.applications, m_baseline.applications);
    EXPECT_EQ(live.sessions, m_baseline.sessions);
    EXPECT_EQ(live.destinationOptions, m_baseline.destinationOptions);
    EXPECT_EQ(live.operations, m_baseline.operations);
  }

  void AddThings(int count)
  {
    for (int i = 0; i < count; ++i)
      provider->Add({{L"Name", L"thing" + std::to_wstring(i)}, {L"Count", static_cast<std::uint32_t>(i)}});
  }

  MI_Session Open(const MI_Char* destination = L"mitest")
  {
    MI_Session session = MI_SESSION_NULL;
    EXPECT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", destination, nullptr, nullptr, nullptr, &session),
              MI_RESULT_OK);
    return session;
  }

  MI_Operation Query(MI_Session& session, const MI_Char* query, const MI_Char* nameSpace = L"root/cimv2")
  {
    MI_Operation operation = MI_OPERATION_NULL;
    MI_Session_QueryInstances(&session, 0, nullptr, nameSpace, L"WQL", query, nullptr, &operation);
    return operation;
  }

  cim::testing::TestHost host{L"mitest"};
  std::shared_ptr<cim::testing::TestProvider> provider;
  MI_Application application = MI_APPLICATION_NULL;

private:
  cim::testing::Monitor::Counts m_baseline;
};
} // namespace mitest

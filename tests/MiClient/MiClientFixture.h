// A test host "miclient" with one class (every scalar MI type, a "CounterType" qualifier), an
// MI application, and a check that every test leaves every MI handle closed.
#pragma once

#include "MiApplication.h"
#include "MiException.h"
#include "MiInstance.h"
#include "MiSession.h"

#include "Cim/Testing/ClassBuilder.h"
#include "Cim/Testing/MiFaults.h"
#include "Cim/Testing/TestHost.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace miclient_test
{
// Runs `action`, expects a CMiException and returns its message.
template <class Action>
std::wstring MiErrorOf(Action&& action)
{
  try
  {
    action();
  }
  catch (const CMiException& error)
  {
    return error.message();
  }
  ADD_FAILURE() << "no CMiException was thrown";
  return {};
}

class MiClientTest : public ::testing::Test
{
protected:
  void SetUp() override
  {
    cim::testing::MiMonitor().ClearHistory();
    m_baseline = cim::testing::MiMonitor().Live();
    provider = host.AddClass(cim::testing::ClassBuilder(L"Test_Thing")
                                 .Key(L"Name")
                                 .Property(L"Count", cim::Type::UInt32, {{L"CounterType", std::uint32_t{65536}}})
                                 .Property(L"Note", cim::Type::String, {{L"DisplayName", std::wstring(L"A note")}})
                                 .Property(L"Flag", cim::Type::Boolean)
                                 .Property(L"Ratio", cim::Type::Real64)
                                 .Property(L"When", cim::Type::DateTime)
                                 .Build());
    application = CMiApplication::CreateInstance();
  }

  void TearDown() override
  {
    application.reset();
    const auto live = cim::testing::MiMonitor().Live();
    EXPECT_EQ(live.applications, m_baseline.applications);
    EXPECT_EQ(live.sessions, m_baseline.sessions);
    EXPECT_EQ(live.destinationOptions, m_baseline.destinationOptions);
    EXPECT_EQ(live.operations, m_baseline.operations);
  }

  void AddThings(int count)
  {
    for (int i = 0; i < count; ++i)
    {
      provider->Add({{L"Name", L"thing" + std::to_wstring(i)}, {L"Count", static_cast<std::uint32_t>(i)}});
    }
  }

  std::shared_ptr<CMiSession> Connected()
  {
    auto session = std::make_shared<CMiSession>(application);
    session->Connect(host.Destination(), L"", L"", L"");
    return session;
  }

  cim::testing::TestHost host{L"miclient"};
  std::shared_ptr<cim::testing::TestProvider> provider;
  std::shared_ptr<CMiApplication> application;

private:
  cim::testing::Monitor::Counts m_baseline;
};
} // namespace miclient_test

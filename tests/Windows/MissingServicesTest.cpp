// The library's collections through create_collector on a system that lacks what they read:
// Wine has no mi.dll, and its wevtapi implements little. Each collection's update ends in Error
// with the system's reason in the log; nothing crashes. Run under Wine only (label "wine").
#include "TaskTestSupport.h"

#include "Collector/Interfaces.h"
#include "Collector/WinEvents/CreateCollector.h"
#include "SystemMi.h"
#include "TestSupport/LogCapture.h"

#include <windows.h>
#include <winevt.h>

#include <fmt/xchar.h>

#include <gtest/gtest.h>

#include <string>

using namespace natc_task_test;
using namespace collector::ni;

namespace
{
// Every log line as one text, for failure messages.
std::string AllLines(const natc_test::CCapturingSink& sink)
{
  std::wstring text;
  for (const auto& line : sink.Lines())
    text += line.text + L"\n";
  return kelda::ToUtf8(text);
}

class MissingServicesTest : public ::testing::Test
{
protected:
  // Workers may still be ending an update the test no longer waits for: joined here, before the
  // fixture's members go, so that none of them logs while the process exits.
  ~MissingServicesTest() override { m_workers.shutdown(); }

  void SetUp() override
  {
    m_collector = collector::win_events::create_collector(m_workers, m_token);
    m_user = m_collector->GetUserPool()->CreateDefault(L"", L"");
    m_machine = m_collector->GetHostPool()->Create(L"localhost");
    m_task = m_collector->GetTaskPool()->Deploy(L"missing", m_machine->GetId(), m_user->GetId());
  }

  void TearDown() override { m_collector->Stop(true); }

  // Runs `collection` until its first update has ended in Error.
  void RunToError(const std::shared_ptr<ICollection>& collection)
  {
    auto recorder = std::make_shared<CStateRecorder>();
    collection->Subscribe(recorder);
    collection->Run();
    ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Error)) << AllLines(m_capture.Sink());
  }

  natc_test::CLoggerCapture m_capture{ELogLevel::Info};
  pool m_workers{2};
  std::shared_ptr<ICancellation> m_token = create_cancellation();
  std::shared_ptr<ICollector> m_collector;
  std::shared_ptr<IUser> m_user;
  std::shared_ptr<IHost> m_machine;
  std::shared_ptr<ITask> m_task;
};

TEST_F(MissingServicesTest, MiPropWithoutMiDllEndsInErrorNamingMiInitialization)
{
  if (SystemHasMi())
    GTEST_SKIP() << "this system has mi.dll";
  auto collection = m_task->CreateCollection(L"MiProp");
  ASSERT_NE(collection, nullptr);
  std::dynamic_pointer_cast<mi::IMiCollectionInit>(collection)
    ->SetFilter({L"root/cimv2", L"Win32_OperatingSystem", L"", {L"Caption"}});
  RunToError(collection);
  EXPECT_TRUE(m_capture.Sink().WaitFor(L"MI_Application_Initialize")) << AllLines(m_capture.Sink());
}

TEST_F(MissingServicesTest, MiPerfWithoutMiDllEndsInErrorNamingMiInitialization)
{
  if (SystemHasMi())
    GTEST_SKIP() << "this system has mi.dll";
  auto collection = m_task->CreateCollection(L"MiPerf");
  ASSERT_NE(collection, nullptr);
  RunToError(collection);
  EXPECT_TRUE(m_capture.Sink().WaitFor(L"MI_Application_Initialize")) << AllLines(m_capture.Sink());
}

TEST_F(MissingServicesTest, WindowsEventsOnAStubEventLogEndsInErrorWithTheSystemCode)
{
  auto collection = m_task->CreateCollection(L"WindowsEvents");
  ASSERT_NE(collection, nullptr);
  std::vector<win_events::SFilter> filters{{L"Application", L"", 0, {}}};
  std::dynamic_pointer_cast<win_events::ICollectionInit>(collection)->SetFilter(filters);
  // What the system itself answers when asked for a session to this machine.
  EVT_RPC_LOGIN login{const_cast<LPWSTR>(L"localhost"), nullptr, nullptr, nullptr, EvtRpcLoginAuthNegotiate};
  SetLastError(ERROR_SUCCESS);
  const EVT_HANDLE session = EvtOpenSession(EvtRpcLogin, &login, 0, 0);
  const DWORD code = GetLastError();
  if (session != nullptr)
  {
    EvtClose(session);
    GTEST_SKIP() << "this system's event log opens sessions";
  }
  RunToError(collection);
  const std::wstring expected = code == ERROR_SUCCESS ? L"EvtOpenSession failed and set no error code (last error 0)"
                                                      : fmt::format(L"(0x{:08X})", HRESULT_FROM_WIN32(code));
  EXPECT_TRUE(m_capture.Sink().WaitFor(expected)) << kelda::ToUtf8(expected) << "\n" << AllLines(m_capture.Sink());
  EXPECT_EQ(collection->GetState(), ICollectionTypes::Error);
}
} // namespace

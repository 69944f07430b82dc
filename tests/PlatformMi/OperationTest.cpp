#include "MiFixture.h"

#include <vector>

using cim::testing::MiCall;
using cim::testing::MiMonitor;
using cim::testing::ScopedMiFault;
using mitest::MiTest;
using mitest::Pull;

namespace
{
std::wstring NameOf(const MI_Instance* instance)
{
  MI_Value value;
  MI_Type type;
  MI_Uint32 flags;
  EXPECT_EQ(MI_Instance_GetElement(instance, L"Name", &value, &type, &flags, nullptr), MI_RESULT_OK);
  return value.string;
}
} // namespace

TEST_F(MiTest, InstancesArePulledOneByOneAndTheLastSaysNoMore)
{
  AddThings(3);
  MI_Session session = Open();
  MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing");
  ASSERT_NE(operation.ft, nullptr);
  EXPECT_EQ(MiMonitor().Live().operations, 1);
  std::vector<std::wstring> names;
  for (int i = 0; i < 3; ++i)
  {
    const auto pulled = Pull(operation);
    ASSERT_EQ(pulled.call, MI_RESULT_OK);
    ASSERT_NE(pulled.instance, nullptr);
    EXPECT_EQ(pulled.result, MI_RESULT_OK);
    EXPECT_FALSE(pulled.hasMessage);
    EXPECT_EQ(pulled.more, i < 2 ? MI_TRUE : MI_FALSE);
    names.push_back(NameOf(pulled.instance));
  }
  EXPECT_EQ(names, (std::vector<std::wstring>{L"thing0", L"thing1", L"thing2"}));
  auto record = MiMonitor().LastOperation();
  EXPECT_EQ(record->query, L"SELECT * FROM Test_Thing");
  EXPECT_EQ(record->dialect, L"WQL");
  EXPECT_EQ(record->nameSpace, L"root/cimv2");
  EXPECT_EQ(record->pulls, 3u);
  EXPECT_EQ(record->delivered, 3u);
  EXPECT_TRUE(record->drained);
  EXPECT_FALSE(record->cancelled);
  EXPECT_EQ(MI_Operation_Close(&operation), MI_RESULT_OK);
  EXPECT_EQ(operation.ft, nullptr);
  EXPECT_TRUE(MiMonitor().LastOperation()->closed);
  EXPECT_EQ(MiMonitor().Live().operations, 0);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, NoInstancesGivesAnEmptyFirstPull)
{
  MI_Session session = Open();
  MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing");
  const auto pulled = Pull(operation);
  EXPECT_EQ(pulled.call, MI_RESULT_OK);
  EXPECT_EQ(pulled.instance, nullptr);
  EXPECT_EQ(pulled.more, MI_FALSE);
  EXPECT_EQ(pulled.result, MI_RESULT_OK);
  EXPECT_TRUE(MiMonitor().LastOperation()->drained);
  // Past the end, the call itself fails.
  EXPECT_EQ(Pull(operation).call, MI_RESULT_FAILED);
  MI_Operation_Close(&operation);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, QueryErrorsArriveWithTheFinalResult)
{
  AddThings(1);
  MI_Session session = Open();
  struct Case
  {
    const MI_Char* nameSpace;
    const MI_Char* dialect;
    const MI_Char* query;
    MI_Result expected;
  };
  const Case cases[] = {
      {L"root/nowhere", L"WQL", L"SELECT * FROM Test_Thing", MI_RESULT_INVALID_NAMESPACE},
      {L"root/cimv2", L"WQL", L"SELECT * FROM Nothing", MI_RESULT_INVALID_CLASS},
      {L"root/cimv2", L"WQL", L"SELECT Missing FROM Test_Thing", MI_RESULT_INVALID_QUERY},
      {L"root/cimv2", L"WQL", L"SELECT  FROM Test_Thing", MI_RESULT_INVALID_QUERY},
      {L"root/cimv2", L"WQL", L"SELECT * FROM", MI_RESULT_INVALID_QUERY},
      {L"root/cimv2", L"CQL", L"SELECT * FROM Test_Thing", MI_RESULT_QUERY_LANGUAGE_NOT_SUPPORTED},
      {L"root/cimv2", nullptr, L"SELECT * FROM Test_Thing", MI_RESULT_QUERY_LANGUAGE_NOT_SUPPORTED},
      {L"root/cimv2", L"WQL", nullptr, MI_RESULT_INVALID_PARAMETER},
  };
  for (const Case& c : cases)
  {
    MI_Operation operation = MI_OPERATION_NULL;
    MI_Session_QueryInstances(&session, 0, nullptr, c.nameSpace, c.dialect, c.query, nullptr, &operation);
    ASSERT_NE(operation.ft, nullptr);
    const auto pulled = Pull(operation);
    EXPECT_EQ(pulled.call, MI_RESULT_OK);
    EXPECT_EQ(pulled.instance, nullptr);
    EXPECT_EQ(pulled.more, MI_FALSE);
    EXPECT_EQ(pulled.result, c.expected);
    EXPECT_TRUE(pulled.hasMessage);
    EXPECT_FALSE(pulled.message.empty());
    EXPECT_EQ(MiMonitor().LastOperation()->finalResult, static_cast<std::uint32_t>(c.expected));
    MI_Operation_Close(&operation);
  }
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, NamespaceWithBackslashesAndNullNamespace)
{
  AddThings(2);
  MI_Session session = Open();
  for (const MI_Char* nameSpace : {L"root\\cimv2", L"ROOT/CIMV2", static_cast<const MI_Char*>(nullptr)})
  {
    MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing", nameSpace);
    int count = 0;
    for (auto pulled = Pull(operation);; pulled = Pull(operation))
    {
      EXPECT_EQ(pulled.result, MI_RESULT_OK);
      count += pulled.instance ? 1 : 0;
      if (!pulled.more)
        break;
    }
    EXPECT_EQ(count, 2);
    MI_Operation_Close(&operation);
  }
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, QueryOnANeverOpenedSessionGivesAClosedOperation)
{
  MI_Session never = MI_SESSION_NULL;
  MI_Operation operation = {5, 5, nullptr};
  MI_Session_QueryInstances(&never, 0, nullptr, L"root/cimv2", L"WQL", L"SELECT * FROM Test_Thing", nullptr,
                            &operation);
  EXPECT_EQ(operation.ft, nullptr);
  EXPECT_EQ(operation.reserved1, 0u);
  MI_Instance const* instance = nullptr;
  MI_Boolean more = MI_TRUE;
  EXPECT_EQ(MI_Operation_GetInstance(&operation, &instance, &more, nullptr, nullptr, nullptr),
            MI_RESULT_INVALID_PARAMETER);
}

TEST_F(MiTest, QueryStartFaultGivesAClosedOperation)
{
  MI_Session session = Open();
  {
    ScopedMiFault fault(MiCall::QueryInstances, MI_RESULT_FAILED);
    MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing");
    EXPECT_EQ(operation.ft, nullptr);
  }
  MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing");
  EXPECT_NE(operation.ft, nullptr);
  MI_Operation_Close(&operation);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, CancelAfterTheFirstInstanceThenDrainAndClose)
{
  AddThings(5);
  MI_Session session = Open();
  MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing");
  auto pulled = Pull(operation);
  ASSERT_NE(pulled.instance, nullptr);
  ASSERT_EQ(pulled.more, MI_TRUE);
  EXPECT_EQ(MI_Operation_Cancel(&operation, MI_REASON_NONE), MI_RESULT_OK);
  pulled = Pull(operation);
  EXPECT_EQ(pulled.call, MI_RESULT_OK);
  EXPECT_EQ(pulled.instance, nullptr);
  EXPECT_EQ(pulled.more, MI_FALSE);
  EXPECT_EQ(pulled.result, MI_RESULT_FAILED);
  EXPECT_EQ(pulled.message, L"The operation was cancelled");
  MI_Operation_Close(&operation);
  const auto record = MiMonitor().LastOperation();
  EXPECT_TRUE(record->cancelled);
  EXPECT_TRUE(record->drained);
  EXPECT_TRUE(record->closed);
  EXPECT_EQ(record->delivered, 1u);
  EXPECT_EQ(record->pulls, 2u);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, ClosingWithoutDrainingIsRecorded)
{
  AddThings(2);
  MI_Session session = Open();
  MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing");
  Pull(operation);
  MI_Operation_Close(&operation);
  const auto record = MiMonitor().LastOperation();
  EXPECT_FALSE(record->drained);
  EXPECT_TRUE(record->closed);
  EXPECT_EQ(MI_Operation_Close(&operation), MI_RESULT_INVALID_PARAMETER);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, ProviderFailureAfterSomeInstances)
{
  AddThings(4);
  provider->FailQuery(MI_RESULT_SERVER_LIMITS_EXCEEDED, L"too many", 2);
  MI_Session session = Open();
  MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing");
  auto first = Pull(operation);
  EXPECT_NE(first.instance, nullptr);
  EXPECT_EQ(first.more, MI_TRUE);
  auto second = Pull(operation);
  EXPECT_NE(second.instance, nullptr);
  EXPECT_EQ(second.more, MI_TRUE);
  auto last = Pull(operation);
  EXPECT_EQ(last.instance, nullptr);
  EXPECT_EQ(last.more, MI_FALSE);
  EXPECT_EQ(last.result, MI_RESULT_SERVER_LIMITS_EXCEEDED);
  EXPECT_EQ(last.message, L"too many");
  MI_Operation_Close(&operation);

  provider->FailQuery(MI_RESULT_ACCESS_DENIED);
  operation = Query(session, L"SELECT * FROM Test_Thing");
  last = Pull(operation);
  EXPECT_EQ(last.instance, nullptr);
  EXPECT_EQ(last.result, MI_RESULT_ACCESS_DENIED);
  MI_Operation_Close(&operation);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, CallbacksReceiveEveryResultBeforeTheStartReturns)
{
  AddThings(2);
  MI_Session session = Open();
  struct Seen
  {
    std::vector<std::wstring> names;
    std::vector<MI_Boolean> more;
    MI_Result final = MI_RESULT_FAILED;
  } seen;
  MI_OperationCallbacks callbacks = {};
  callbacks.callbackContext = &seen;
  callbacks.instanceResult = [](MI_Operation*, void* context, const MI_Instance* instance, MI_Boolean moreResults,
                                MI_Result resultCode, const MI_Char*, const MI_Instance*,
                                MI_Result (*)(MI_Operation*)) {
    auto& s = *static_cast<Seen*>(context);
    if (instance)
      s.names.push_back(NameOf(instance));
    s.more.push_back(moreResults);
    s.final = resultCode;
  };
  MI_Operation operation = MI_OPERATION_NULL;
  MI_Session_QueryInstances(&session, 0, nullptr, L"root/cimv2", L"WQL", L"SELECT * FROM Test_Thing", &callbacks,
                            &operation);
  EXPECT_EQ(seen.names, (std::vector<std::wstring>{L"thing0", L"thing1"}));
  EXPECT_EQ(seen.more, (std::vector<MI_Boolean>{MI_TRUE, MI_FALSE}));
  EXPECT_EQ(seen.final, MI_RESULT_OK);
  MI_Operation_Close(&operation);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, EnumerateInstancesAndTestConnection)
{
  AddThings(2);
  MI_Session session = Open();
  MI_Operation operation = MI_OPERATION_NULL;
  MI_Session_EnumerateInstances(&session, 0, nullptr, L"root/cimv2", L"Test_Thing", MI_FALSE, nullptr, &operation);
  EXPECT_NE(Pull(operation).instance, nullptr);
  EXPECT_EQ(MiMonitor().LastOperation()->query, L"SELECT * FROM Test_Thing");
  MI_Operation_Close(&operation);
  MI_Session_TestConnection(&session, 0, nullptr, &operation);
  const auto pulled = Pull(operation);
  EXPECT_EQ(pulled.instance, nullptr);
  EXPECT_EQ(pulled.result, MI_RESULT_OK);
  MI_Operation_Close(&operation);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, OperationOutlivesItsSession)
{
  AddThings(2);
  MI_Session session = Open();
  MI_Operation operation = Query(session, L"SELECT * FROM Test_Thing");
  MI_Session_Close(&session, nullptr, nullptr);
  EXPECT_NE(Pull(operation).instance, nullptr);
  MI_Operation_Close(&operation);
}

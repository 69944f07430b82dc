// CMiInstanceOperation and CMiOperationHandle: pulling, the end of results, errors with the
// API's own message, skipping empty results, and cancel/drain/close by the last owner.
#include "MiClientFixture.h"

#include "KeldaKernel/Exceptions.h"

#include <deque>
#include <vector>

using namespace miclient_test;
using cim::testing::MiMonitor;

namespace
{
std::vector<std::wstring> PullNames(CMiInstanceOperation& operation)
{
  std::vector<std::wstring> names;
  for (CMiInstance instance = operation.GetInstance(); !instance.IsEmpty(); instance = operation.GetInstance())
  {
    CMiValue value;
    instance.Get(L"Name", value);
    const std::wstring_view name = value.Value();
    names.emplace_back(name);
  }
  return names;
}

TEST_F(MiClientTest, PullsEveryInstanceThenAnEmptyOne)
{
  AddThings(3);
  auto session = Connected();
  auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  EXPECT_TRUE(operation.HasMoreResults());
  EXPECT_EQ(PullNames(operation), (std::vector<std::wstring>{L"thing0", L"thing1", L"thing2"}));
  EXPECT_FALSE(operation.HasMoreResults());
  // Past the end, pulls keep answering "no instance" without calling the API.
  EXPECT_TRUE(operation.GetInstance().IsEmpty());
}

TEST_F(MiClientTest, NoInstancesGiveAnEmptyInstanceOnTheFirstPull)
{
  auto session = Connected();
  auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  EXPECT_TRUE(operation.GetInstance().IsEmpty());
  EXPECT_FALSE(operation.HasMoreResults());
}

TEST_F(MiClientTest, DiscardingAfterTheFirstInstanceCancelsDrainsAndCloses)
{
  AddThings(5);
  auto session = Connected();
  const long before = MiMonitor().Live().operations;
  {
    auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
    EXPECT_FALSE(operation.GetInstance().IsEmpty());
    EXPECT_EQ(MiMonitor().Live().operations, before + 1);
  }
  const auto record = MiMonitor().LastOperation();
  ASSERT_TRUE(record);
  EXPECT_TRUE(record->cancelled);
  EXPECT_TRUE(record->drained);
  EXPECT_TRUE(record->closed);
  EXPECT_EQ(record->delivered, 1u);
  EXPECT_EQ(MiMonitor().Live().operations, before);
}

TEST_F(MiClientTest, AnInstanceKeepsItsOperationOpen)
{
  AddThings(2);
  auto session = Connected();
  auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name, Count FROM Test_Thing");
  CMiInstance instance = operation.GetInstance();
  operation.Close();
  EXPECT_FALSE(MiMonitor().LastOperation()->closed);
  CMiValue value;
  instance.Get(L"Count", value);
  const __int64 count = value.Value();
  EXPECT_EQ(count, 0);
  instance = CMiInstance();
  EXPECT_TRUE(MiMonitor().LastOperation()->closed);
}

TEST_F(MiClientTest, PullAfterCloseFailsWithInvalidParameter)
{
  auto session = Connected();
  auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  operation.Close();
  EXPECT_EQ(MiErrorOf([&] { static_cast<void>(operation.GetInstance()); }),
            L"One or more parameter values passed to the method are not valid");
  EXPECT_FALSE(operation.HasMoreResults());
  EXPECT_TRUE(operation.GetInstance().IsEmpty());
}

TEST_F(MiClientTest, PullErrorCarriesTheApiMessageInTheFunctionSlot)
{
  AddThings(2);
  provider->FailQuery(MI_RESULT_SERVER_IS_SHUTTING_DOWN, L"provider went away", 1);
  auto session = Connected();
  auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  EXPECT_FALSE(operation.GetInstance().IsEmpty());
  try
  {
    static_cast<void>(operation.GetInstance());
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(),
              L"provider went away (The CIM server is shutting down and cannot process the operation)");
    EXPECT_NE(get_throw_function(error).find("CMiInstanceOperation::GetInstance"), std::string::npos);
    EXPECT_NE(get_throw_file(error).find("MiOperation.cpp"), std::string::npos);
  }
  EXPECT_FALSE(operation.HasMoreResults());
}

TEST_F(MiClientTest, PullErrorWithoutMessageIsTheBareText)
{
  provider->FailQuery(MI_RESULT_FAILED);
  auto session = Connected();
  auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  EXPECT_EQ(MiErrorOf([&] { static_cast<void>(operation.GetInstance()); }),
            L"A general error occurred, not covered by a more specific error code");
}

// A scripted operation: each pull hands out the next step (an instance or not, more or not, a
// call result and an operation result), and every API call is counted.
struct FakeStep
{
  bool instance = false;
  bool more = true;
  MI_Result call = MI_RESULT_OK;
  MI_Result result = MI_RESULT_OK;
  const MI_Char* message = nullptr;
};

struct FakeOperation
{
  std::deque<FakeStep> steps;
  int pulls = 0;
  int cancels = 0;
  int closes = 0;
  std::vector<std::string> calls;
};

FakeOperation* g_fake = nullptr;

MI_Result MI_CALL FakeGetElementCount(const MI_Instance*, MI_Uint32* count)
{
  *count = 7;
  return MI_RESULT_OK;
}

MI_InstanceFT MakeFakeInstanceFT()
{
  MI_InstanceFT table{};
  table.GetElementCount = &FakeGetElementCount;
  return table;
}

const MI_InstanceFT g_fakeInstanceFT = MakeFakeInstanceFT();
MI_Instance g_fakeInstance{&g_fakeInstanceFT, nullptr, nullptr, nullptr, {}};

MI_Result MI_CALL FakeClose(MI_Operation*)
{
  ++g_fake->closes;
  g_fake->calls.emplace_back("close");
  return MI_RESULT_OK;
}

MI_Result MI_CALL FakeCancel(MI_Operation*, MI_CancellationReason reason)
{
  EXPECT_EQ(reason, MI_REASON_NONE);
  ++g_fake->cancels;
  g_fake->calls.emplace_back("cancel");
  return MI_RESULT_OK;
}

MI_Result MI_CALL FakeGetInstance(MI_Operation*, const MI_Instance** instance, MI_Boolean* more, MI_Result* result,
                                  const MI_Char** message, const MI_Instance**)
{
  ++g_fake->pulls;
  g_fake->calls.emplace_back("pull");
  FakeStep step;
  step.more = false;
  if (!g_fake->steps.empty())
  {
    step = g_fake->steps.front();
    g_fake->steps.pop_front();
  }
  *instance = step.instance ? &g_fakeInstance : nullptr;
  *more = step.more ? MI_TRUE : MI_FALSE;
  *result = step.result;
  *message = step.message;
  return step.call;
}

MI_OperationFT MakeFakeOperationFT()
{
  MI_OperationFT table{};
  table.Close = &FakeClose;
  table.Cancel = &FakeCancel;
  table.GetInstance = &FakeGetInstance;
  return table;
}

const MI_OperationFT g_fakeOperationFT = MakeFakeOperationFT();

class FakeOperationTest : public ::testing::Test
{
protected:
  void SetUp() override { g_fake = &fake; }
  void TearDown() override { g_fake = nullptr; }

  static MI_Operation Open()
  {
    MI_Operation operation MI_OPERATION_NULL;
    operation.ft = &g_fakeOperationFT;
    return operation;
  }

  FakeOperation fake;
};

TEST_F(FakeOperationTest, EmptyResultsAreSkippedUntilAnInstanceArrives)
{
  fake.steps = {{false, true}, {false, true}, {true, true}, {false, false}};
  {
    CMiInstanceOperation operation(Open(), &DrainOneInstance);
    const CMiInstance instance = operation.GetInstance();
    ASSERT_FALSE(instance.IsEmpty());
    EXPECT_EQ(instance.GetCount(), 7u);
    EXPECT_EQ(fake.pulls, 3);
    EXPECT_TRUE(operation.GetInstance().IsEmpty());
    EXPECT_EQ(fake.pulls, 4);
  }
  // Closing drains once more (its flag is unknown to the handle) and closes.
  EXPECT_EQ(fake.calls.back(), "close");
  EXPECT_EQ(fake.closes, 1);
}

TEST_F(FakeOperationTest, EmptyResultsUntilTheEndGiveAnEmptyInstance)
{
  fake.steps = {{false, true}, {false, false}};
  CMiInstanceOperation operation(Open(), &DrainOneInstance);
  EXPECT_TRUE(operation.GetInstance().IsEmpty());
  EXPECT_EQ(fake.pulls, 2);
}

TEST_F(FakeOperationTest, FailedCallThrowsItsCode)
{
  fake.steps = {{false, true, MI_RESULT_NOT_SUPPORTED, MI_RESULT_OK, nullptr}};
  CMiInstanceOperation operation(Open(), &DrainOneInstance);
  EXPECT_EQ(MiErrorOf([&] { static_cast<void>(operation.GetInstance()); }), L"The requested operation is not supported");
}

TEST_F(FakeOperationTest, LastOwnerCancelsThenDrainsWhileMoreThenCloses)
{
  fake.steps = {{true, true}, {true, true}, {true, true}, {false, false}};
  {
    CMiInstanceOperation operation(Open(), &DrainOneInstance);
    EXPECT_FALSE(operation.GetInstance().IsEmpty());
  }
  EXPECT_EQ(fake.calls, (std::vector<std::string>{"pull", "cancel", "pull", "pull", "pull", "close"}));
}

TEST_F(FakeOperationTest, DrainStopsAtTheFirstFailure)
{
  fake.steps = {{true, true}, {false, true, MI_RESULT_FAILED}, {true, true}};
  {
    CMiInstanceOperation operation(Open(), &DrainOneInstance);
    EXPECT_FALSE(operation.GetInstance().IsEmpty());
  }
  EXPECT_EQ(fake.calls, (std::vector<std::string>{"pull", "cancel", "pull", "close"}));
}

TEST_F(FakeOperationTest, CustomDrainFunctionIsUsed)
{
  int drains = 0;
  {
    CMiOperation operation(Open(), [&](MI_Operation&, MI_Boolean& more) {
      more = ++drains < 3 ? MI_TRUE : MI_FALSE;
      return MI_RESULT_OK;
    });
  }
  EXPECT_EQ(drains, 3);
  EXPECT_EQ(fake.calls, (std::vector<std::string>{"cancel", "close"}));
}

TEST_F(FakeOperationTest, ClosedOperationIsNeitherCancelledNorDrained)
{
  int drains = 0;
  {
    CMiOperation operation(MI_Operation MI_OPERATION_NULL, [&](MI_Operation&, MI_Boolean&) {
      ++drains;
      return MI_RESULT_OK;
    });
  }
  EXPECT_EQ(drains, 0);
  EXPECT_TRUE(fake.calls.empty());
}

TEST_F(FakeOperationTest, DrainOfAClosedOperationIsInvalidParameter)
{
  MI_Operation closed MI_OPERATION_NULL;
  MI_Boolean more = MI_TRUE;
  EXPECT_EQ(DrainOneInstance(closed, more), MI_RESULT_INVALID_PARAMETER);
  EXPECT_EQ(more, MI_FALSE);
}
} // namespace

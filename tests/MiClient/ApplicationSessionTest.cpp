// CMiApplication and CMiSession: initialisation, the exact connect steps (options, credentials,
// protocol), error texts, and when each handle is closed.
#include "MiClientFixture.h"

#include "KeldaKernel/Exceptions.h"

using namespace miclient_test;
using cim::testing::MiCall;
using cim::testing::MiMonitor;
using cim::testing::ScopedMiFault;

namespace
{
TEST_F(MiClientTest, CreateInstanceMakesIndependentOpenApplications)
{
  const long before = MiMonitor().Live().applications;
  auto second = CMiApplication::CreateInstance();
  ASSERT_NE(second, application);
  MI_Application* first = *application;
  MI_Application* other = *second;
  EXPECT_NE(first, other);
  EXPECT_NE(first->ft, nullptr);
  EXPECT_NE(other->ft, nullptr);
  EXPECT_EQ(MiMonitor().Live().applications, before + 1);
  second.reset();
  EXPECT_EQ(MiMonitor().Live().applications, before);
}

TEST_F(MiClientTest, CreateInstanceIsWiredToItsSelfReference)
{
  EXPECT_EQ(application->shared_from_this(), application);
}

TEST_F(MiClientTest, FailedInitialisationThrowsAndLeavesNothingOpen)
{
  const long before = MiMonitor().Live().applications;
  const ScopedMiFault fault(MiCall::Initialize, MI_RESULT_ACCESS_DENIED);
  try
  {
    static_cast<void>(CMiApplication::CreateInstance());
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(), L"MI_Application_Initialize (Access to a CIM resource is not available to the client)");
    EXPECT_NE(get_throw_function(error).find("CMiApplication::CMiApplication"), std::string::npos);
    EXPECT_NE(get_throw_file(error).find("MiApplication.cpp"), std::string::npos);
  }
  EXPECT_EQ(MiMonitor().Live().applications, before);
}

TEST_F(MiClientTest, ConnectSetsPacketPrivacyAndUsesTheDcomProtocol)
{
  auto session = Connected();
  EXPECT_TRUE(session->IsConnected());
  const auto options = MiMonitor().LastOptions();
  ASSERT_TRUE(options);
  EXPECT_EQ(options->packetPrivacy, 1u);
  EXPECT_TRUE(options->deleted);
  const auto record = MiMonitor().LastSession();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->protocol, std::wstring(L"WMIDCOM"));
  EXPECT_EQ(record->destination, std::wstring(L"miclient"));
  EXPECT_TRUE(record->hadOptions);
  EXPECT_EQ(record->packetPrivacy, 1u);
}

TEST_F(MiClientTest, EmptyUserAddsNoCredentialsEvenWithDomainAndPassword)
{
  auto session = std::make_shared<CMiSession>(application);
  session->Connect(host.Destination(), L"CORP", L"", L"secret");
  const auto options = MiMonitor().LastOptions();
  ASSERT_TRUE(options);
  EXPECT_TRUE(options->credentials.empty());
  EXPECT_TRUE(MiMonitor().LastSession()->credentials.empty());
}

TEST_F(MiClientTest, UserWithEmptyPasswordStillAddsCredentials)
{
  auto session = std::make_shared<CMiSession>(application);
  session->Connect(host.Destination(), L"CORP", L"alice", L"");
  const auto options = MiMonitor().LastOptions();
  ASSERT_TRUE(options);
  ASSERT_EQ(options->credentials.size(), 1u);
  const auto& credentials = options->credentials.front();
  EXPECT_EQ(credentials.optionName, L"__MI_DESTINATIONOPTIONS_DESTINATION_CREDENTIALS");
  EXPECT_EQ(credentials.authenticationType, L"Default");
  EXPECT_EQ(credentials.domain, L"CORP");
  EXPECT_EQ(credentials.user, L"alice");
  EXPECT_EQ(credentials.password, L"");
}

TEST_F(MiClientTest, CredentialsReachTheHost)
{
  host.RequireCredentials(L"CORP", L"alice", L"pw");
  provider->Add({{L"Name", std::wstring(L"a")}});
  auto good = std::make_shared<CMiSession>(application);
  good->Connect(host.Destination(), L"CORP", L"alice", L"pw");
  auto operation = good->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  EXPECT_FALSE(operation.GetInstance().IsEmpty());

  // A wrong password is not noticed by Connect, only by the first operation.
  auto bad = std::make_shared<CMiSession>(application);
  bad->Connect(host.Destination(), L"CORP", L"alice", L"wrong");
  auto refused = bad->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  const std::wstring message = MiErrorOf([&] { static_cast<void>(refused.GetInstance()); });
  EXPECT_NE(message.find(L"Access to a CIM resource is not available to the client"), std::wstring::npos) << message;
}

TEST_F(MiClientTest, FailingNewSessionStillDeletesTheOptions)
{
  host.Refuse(MI_RESULT_ACCESS_DENIED);
  auto session = std::make_shared<CMiSession>(application);
  try
  {
    session->Connect(host.Destination(), L"CORP", L"alice", L"pw");
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(), L"MI_Application_NewSession (Access to a CIM resource is not available to the client)");
    EXPECT_NE(get_throw_function(error).find("CMiSession::Connect"), std::string::npos);
    EXPECT_NE(get_throw_file(error).find("MiSession.cpp"), std::string::npos);
  }
  const auto options = MiMonitor().LastOptions();
  ASSERT_TRUE(options);
  EXPECT_TRUE(options->deleted);
  EXPECT_FALSE(session->IsConnected());
}

TEST_F(MiClientTest, FailingDestinationOptionsThrowsWithTheApiCode)
{
  const ScopedMiFault fault(MiCall::NewDestinationOptions, MI_RESULT_SERVER_LIMITS_EXCEEDED);
  auto session = std::make_shared<CMiSession>(application);
  EXPECT_EQ(MiErrorOf([&] { session->Connect(host.Destination(), L"", L"", L""); }),
            L"MI_Application_NewDestinationOptions (The operation failed because server limits were exceeded)");
}

TEST_F(MiClientTest, ConnectWithoutApplicationFailsWithInvalidParameter)
{
  auto session = std::make_shared<CMiSession>(nullptr);
  EXPECT_EQ(MiErrorOf([&] { session->Connect(host.Destination(), L"", L"", L""); }),
            L"MI_Application_NewDestinationOptions (One or more parameter values passed to the method are not valid)");
}

TEST_F(MiClientTest, UnknownHostIsNotSupported)
{
  auto session = std::make_shared<CMiSession>(application);
  EXPECT_EQ(MiErrorOf([&] { session->Connect(L"no-such-host.invalid", L"", L"", L""); }),
            L"MI_Application_NewSession (The requested operation is not supported)");
}

TEST_F(MiClientTest, SessionIsClosedOnDestruction)
{
  const long before = MiMonitor().Live().sessions;
  auto session = Connected();
  EXPECT_EQ(MiMonitor().Live().sessions, before + 1);
  const auto record = MiMonitor().LastSession();
  session.reset();
  EXPECT_EQ(MiMonitor().Live().sessions, before);
  EXPECT_TRUE(MiMonitor().LastSession()->closed);
}

TEST_F(MiClientTest, SessionKeepsItsApplicationAlive)
{
  const long before = MiMonitor().Live().applications;
  auto session = Connected();
  application.reset();
  EXPECT_EQ(MiMonitor().Live().applications, before);
  AddThings(1);
  auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  EXPECT_FALSE(operation.GetInstance().IsEmpty());
  operation.Close();
  session.reset();
  EXPECT_EQ(MiMonitor().Live().applications, before - 1);
}

TEST_F(MiClientTest, QueryOnNeverConnectedSessionIsAGeneralError)
{
  CMiSession session(application);
  try
  {
    static_cast<void>(session.QueryInstances(L"root/cimv2", L"SELECT * FROM Test_Thing"));
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(),
              L"MI_Session_QueryInstances (A general error occurred, not covered by a more specific error code)");
    EXPECT_NE(get_throw_function(error).find("CMiSession::QueryInstances"), std::string::npos);
  }
}

TEST_F(MiClientTest, RefusedQueryStartIsAlwaysCodeOne)
{
  auto session = Connected();
  const ScopedMiFault fault(MiCall::QueryInstances, MI_RESULT_ACCESS_DENIED);
  EXPECT_EQ(MiErrorOf([&] { static_cast<void>(session->QueryInstances(L"root/cimv2", L"SELECT * FROM Test_Thing")); }),
            L"MI_Session_QueryInstances (A general error occurred, not covered by a more specific error code)");
}

TEST_F(MiClientTest, QueryPassesNamespaceDialectAndText)
{
  auto session = Connected();
  auto operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Test_Thing");
  const auto record = MiMonitor().LastOperation();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->nameSpace, L"root/cimv2");
  EXPECT_EQ(record->dialect, L"WQL");
  EXPECT_EQ(record->query, L"SELECT Name FROM Test_Thing");
}

TEST_F(MiClientTest, QueryErrorsArriveWithTheFirstPull)
{
  auto session = Connected();
  auto badClass = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM No_Such_Class");
  EXPECT_NE(MiErrorOf([&] { static_cast<void>(badClass.GetInstance()); }).find(L"The specified class does not exist"),
            std::wstring::npos);
  auto badNamespace = session->QueryInstances(L"root/nothing", L"SELECT Name FROM Test_Thing");
  EXPECT_NE(
      MiErrorOf([&] { static_cast<void>(badNamespace.GetInstance()); }).find(L"The target namespace does not exist"),
      std::wstring::npos);
}
} // namespace

#include "MiFixture.h"

using cim::testing::MiCall;
using cim::testing::MiMonitor;
using cim::testing::ScopedMiFault;
using mitest::MiTest;
using mitest::Pull;

namespace
{
// Adds a user (domain, name, password) to the options, as a client with explicit credentials does.
MI_Result AddCredentials(MI_DestinationOptions& options, const MI_Char* domain, const MI_Char* user,
                         const MI_Char* password)
{
  MI_UserCredentials credentials = {};
  credentials.authenticationType = MI_AUTH_TYPE_DEFAULT;
  credentials.credentials.usernamePassword = {domain, user, password};
  return MI_DestinationOptions_AddDestinationCredentials(&options, &credentials);
}
} // namespace

TEST_F(MiTest, ApplicationIsCountedAndClosesOnce)
{
  const long before = MiMonitor().Live().applications;
  MI_Application second = MI_APPLICATION_NULL;
  ASSERT_EQ(MI_Application_InitializeV1(0, L"app", nullptr, &second), MI_RESULT_OK);
  EXPECT_NE(second.ft, nullptr);
  EXPECT_EQ(MiMonitor().Live().applications, before + 1);
  EXPECT_EQ(MI_Application_Close(&second), MI_RESULT_OK);
  EXPECT_EQ(second.ft, nullptr);
  EXPECT_EQ(MiMonitor().Live().applications, before);
  EXPECT_EQ(MI_Application_Close(&second), MI_RESULT_INVALID_PARAMETER);
}

TEST_F(MiTest, InitializeFaultLeavesTheHandleClosed)
{
  ScopedMiFault fault(MiCall::Initialize, MI_RESULT_SERVER_IS_SHUTTING_DOWN);
  MI_Application second = {1, 2, nullptr};
  MI_Instance* extended = reinterpret_cast<MI_Instance*>(&second);
  EXPECT_EQ(MI_Application_InitializeV1(0, nullptr, &extended, &second), MI_RESULT_SERVER_IS_SHUTTING_DOWN);
  EXPECT_EQ(second.ft, nullptr);
  EXPECT_EQ(extended, nullptr);
  EXPECT_EQ(MI_Application_InitializeV1(0, nullptr, nullptr, nullptr), MI_RESULT_INVALID_PARAMETER);
}

TEST_F(MiTest, DestinationOptionsRecordPacketPrivacyAndCredentials)
{
  MI_DestinationOptions options = MI_DESTINATIONOPTIONS_NULL;
  ASSERT_EQ(MI_Application_NewDestinationOptions(&application, &options), MI_RESULT_OK);
  EXPECT_EQ(MiMonitor().Live().destinationOptions, 1);
  EXPECT_EQ(MI_DestinationOptions_SetPacketPrivacy(&options, MI_TRUE), MI_RESULT_OK);
  EXPECT_EQ(AddCredentials(options, L"DOMAIN", L"user", L""), MI_RESULT_OK);

  MI_Uint32 privacy = 0;
  EXPECT_EQ(MI_DestinationOptions_GetNumber(&options, L"__MI_DESTINATIONOPTIONS_PACKET_PRIVACY", &privacy, nullptr,
                                            nullptr),
            MI_RESULT_OK);
  EXPECT_EQ(privacy, 1u);
  MI_Uint32 count = 0;
  EXPECT_EQ(MI_DestinationOptions_GetCredentialsCount(&options, &count), MI_RESULT_OK);
  EXPECT_EQ(count, 1u);
  MI_UserCredentials read = {};
  const MI_Char* optionName = nullptr;
  EXPECT_EQ(MI_DestinationOptions_GetCredentialsAt(&options, 0, &optionName, &read, nullptr), MI_RESULT_OK);
  EXPECT_STREQ(read.credentials.usernamePassword.username, L"user");
  EXPECT_EQ(read.credentials.usernamePassword.password, nullptr);

  auto record = MiMonitor().LastOptions();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->packetPrivacy, 1u);
  ASSERT_EQ(record->credentials.size(), 1u);
  EXPECT_EQ(record->credentials[0].optionName, L"__MI_DESTINATIONOPTIONS_DESTINATION_CREDENTIALS");
  EXPECT_EQ(record->credentials[0].authenticationType, L"Default");
  EXPECT_EQ(record->credentials[0].domain, L"DOMAIN");
  EXPECT_EQ(record->credentials[0].user, L"user");
  EXPECT_EQ(record->credentials[0].password, L"");
  EXPECT_FALSE(record->deleted);

  MI_DestinationOptions_Delete(&options);
  EXPECT_EQ(options.ft, nullptr);
  EXPECT_TRUE(MiMonitor().LastOptions()->deleted);
  EXPECT_EQ(MiMonitor().Live().destinationOptions, 0);
}

TEST_F(MiTest, OptionsWithoutCredentialsRecordNone)
{
  MI_DestinationOptions options = MI_DESTINATIONOPTIONS_NULL;
  ASSERT_EQ(MI_Application_NewDestinationOptions(&application, &options), MI_RESULT_OK);
  MI_DestinationOptions_SetPacketPrivacy(&options, MI_TRUE);
  MI_DestinationOptions_Delete(&options);
  const auto record = MiMonitor().LastOptions();
  EXPECT_TRUE(record->credentials.empty());
  EXPECT_TRUE(record->deleted);
}

TEST_F(MiTest, NewDestinationOptionsFault)
{
  ScopedMiFault fault(MiCall::NewDestinationOptions, MI_RESULT_FAILED);
  MI_DestinationOptions options = MI_DESTINATIONOPTIONS_NULL;
  EXPECT_EQ(MI_Application_NewDestinationOptions(&application, &options), MI_RESULT_FAILED);
  EXPECT_EQ(options.ft, nullptr);
}

TEST_F(MiTest, SessionOverDcomToTheTestHostCarriesTheOptions)
{
  MI_DestinationOptions options = MI_DESTINATIONOPTIONS_NULL;
  ASSERT_EQ(MI_Application_NewDestinationOptions(&application, &options), MI_RESULT_OK);
  MI_DestinationOptions_SetPacketPrivacy(&options, MI_TRUE);
  ASSERT_EQ(AddCredentials(options, L"D", L"u", L"p"), MI_RESULT_OK);

  MI_Session session = MI_SESSION_NULL;
  ASSERT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", L"MITEST", &options, nullptr, nullptr, &session),
            MI_RESULT_OK);
  MI_DestinationOptions_Delete(&options);
  EXPECT_NE(session.ft, nullptr);
  EXPECT_EQ(MiMonitor().Live().sessions, 1);
  const auto record = MiMonitor().LastSession();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->protocol, L"WMIDCOM");
  EXPECT_EQ(record->destination, L"MITEST");
  EXPECT_TRUE(record->hadOptions);
  EXPECT_EQ(record->packetPrivacy, 1u);
  ASSERT_EQ(record->credentials.size(), 1u);
  EXPECT_EQ(record->credentials[0].password, L"p");

  MI_Application sessionApplication = MI_APPLICATION_NULL;
  EXPECT_EQ(MI_Session_GetApplication(&session, &sessionApplication), MI_RESULT_OK);
  EXPECT_EQ(sessionApplication.ft, application.ft);

  EXPECT_EQ(MI_Session_Close(&session, nullptr, nullptr), MI_RESULT_OK);
  EXPECT_EQ(session.ft, nullptr);
  EXPECT_TRUE(MiMonitor().LastSession()->closed);
  EXPECT_EQ(MI_Session_Close(&session, nullptr, nullptr), MI_RESULT_INVALID_PARAMETER);
}

TEST_F(MiTest, AsynchronousSessionCloseCallsItsCompletion)
{
  MI_Session session = Open();
  int calls = 0;
  EXPECT_EQ(MI_Session_Close(&session, &calls, [](void* context) { ++*static_cast<int*>(context); }), MI_RESULT_OK);
  EXPECT_EQ(calls, 1);
}

TEST_F(MiTest, UnknownDestinationIsNotSupported)
{
  MI_Session session = {7, 7, nullptr};
  EXPECT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", L"far.away.example", nullptr, nullptr, nullptr,
                                      &session),
            MI_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(session.ft, nullptr);
  EXPECT_EQ(session.reserved1, 0u);
  EXPECT_EQ(MiMonitor().LastSession()->result, MI_RESULT_NOT_SUPPORTED);
}

TEST_F(MiTest, RefusingHostFailsNewSessionAndOptionsCanStillBeDeleted)
{
  host.Refuse(MI_RESULT_ACCESS_DENIED);
  MI_DestinationOptions options = MI_DESTINATIONOPTIONS_NULL;
  ASSERT_EQ(MI_Application_NewDestinationOptions(&application, &options), MI_RESULT_OK);
  MI_Session session = MI_SESSION_NULL;
  EXPECT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", L"mitest", &options, nullptr, nullptr, &session),
            MI_RESULT_ACCESS_DENIED);
  EXPECT_EQ(session.ft, nullptr);
  MI_DestinationOptions_Delete(&options);
  EXPECT_TRUE(MiMonitor().LastOptions()->deleted);
  host.Accept();
  MI_Session again = Open();
  EXPECT_EQ(MI_Session_Close(&again, nullptr, nullptr), MI_RESULT_OK);
}

TEST_F(MiTest, NewSessionFault)
{
  ScopedMiFault fault(MiCall::NewSession, MI_RESULT_SERVER_LIMITS_EXCEEDED);
  MI_Session session = MI_SESSION_NULL;
  EXPECT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", L"mitest", nullptr, nullptr, nullptr, &session),
            MI_RESULT_SERVER_LIMITS_EXCEEDED);
  EXPECT_EQ(session.ft, nullptr);
}

TEST_F(MiTest, ProtocolNames)
{
  MI_Session session = MI_SESSION_NULL;
  EXPECT_EQ(MI_Application_NewSession(&application, L"WINRM", L"mitest", nullptr, nullptr, nullptr, &session),
            MI_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(MI_Application_NewSession(&application, L"carrier-pigeon", L"mitest", nullptr, nullptr, nullptr, &session),
            MI_RESULT_INVALID_PARAMETER);
  ASSERT_EQ(MI_Application_NewSession(&application, nullptr, L"mitest", nullptr, nullptr, nullptr, &session),
            MI_RESULT_OK);
  EXPECT_FALSE(MiMonitor().LastSession()->protocol.has_value());
  MI_Session_Close(&session, nullptr, nullptr);
  ASSERT_EQ(MI_Application_NewSession(&application, L"wmidcom", L"mitest", nullptr, nullptr, nullptr, &session),
            MI_RESULT_OK);
  MI_Session_Close(&session, nullptr, nullptr);
}

TEST_F(MiTest, ClosedApplicationRefusesEverything)
{
  MI_Application closed = MI_APPLICATION_NULL;
  MI_Session session = {1, 1, nullptr};
  EXPECT_EQ(MI_Application_NewSession(&closed, L"WMIDCOM", L"mitest", nullptr, nullptr, nullptr, &session),
            MI_RESULT_INVALID_PARAMETER);
  EXPECT_EQ(session.ft, nullptr);
  MI_DestinationOptions options = MI_DESTINATIONOPTIONS_NULL;
  EXPECT_EQ(MI_Application_NewDestinationOptions(&closed, &options), MI_RESULT_INVALID_PARAMETER);
}

TEST_F(MiTest, RequiredCredentialsDenyTheFirstOperationOnly)
{
  AddThings(1);
  host.RequireCredentials(L"DOM", L"admin", L"secret");
  MI_Session anonymous = Open();
  MI_Operation denied = Query(anonymous, L"SELECT * FROM Test_Thing");
  auto pulled = Pull(denied);
  EXPECT_EQ(pulled.instance, nullptr);
  EXPECT_EQ(pulled.result, MI_RESULT_ACCESS_DENIED);
  MI_Operation_Close(&denied);
  MI_Session_Close(&anonymous, nullptr, nullptr);

  MI_DestinationOptions options = MI_DESTINATIONOPTIONS_NULL;
  ASSERT_EQ(MI_Application_NewDestinationOptions(&application, &options), MI_RESULT_OK);
  ASSERT_EQ(AddCredentials(options, L"dom", L"ADMIN", L"secret"), MI_RESULT_OK);
  MI_Session session = MI_SESSION_NULL;
  ASSERT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", L"mitest", &options, nullptr, nullptr, &session),
            MI_RESULT_OK);
  MI_DestinationOptions_Delete(&options);
  MI_Operation allowed = Query(session, L"SELECT * FROM Test_Thing");
  pulled = Pull(allowed);
  EXPECT_NE(pulled.instance, nullptr);
  EXPECT_EQ(pulled.result, MI_RESULT_OK);
  MI_Operation_Close(&allowed);
  MI_Session_Close(&session, nullptr, nullptr);
}

// "MiProp" through Run and its updates: the filter and query text, records and batches, NULLs,
// rejected types, failures in every MI step, and MiCollectionBase's session cache (user and
// host checks, reconnect after SetUser, no caching of a failed connect).
#include "MiCollectionFixture.h"

#include "Collector.Interfaces.Impl.h"
#include "KeldaKernel/Exceptions.h"

using namespace micollection_test;
using cim::testing::MiMonitor;
using collector::ni::ICompositionRecord;
using collector::ni::impl::BuildMiPropQuery;
using collector::ni::impl::CRecordOnVectorNoKey;

namespace
{
std::wstring KeldaErrorOf(const std::function<void()>& action)
{
  try
  {
    action();
  }
  catch (const CKeldaException& error)
  {
    return error.message();
  }
  ADD_FAILURE() << "no exception";
  return {};
}

// ---- filter and query text ----

TEST(MiPropQuery, JoinsNonEmptyNamesWithCommas)
{
  EXPECT_EQ(BuildMiPropQuery({L"root/cimv2", L"Win32_Service", L"WHERE StartMode='Auto'", {L"Name", L"", L"State"}}),
            L"SELECT Name,State FROM Win32_Service WHERE StartMode='Auto'");
  EXPECT_EQ(BuildMiPropQuery({L"root/cimv2", L"Win32_Service", L"", {L"", L"Name"}}),
            L"SELECT Name FROM Win32_Service");
}

TEST(MiPropQuery, NoPropertiesGiveTwoBlanksAndOnlyTheEndIsTrimmed)
{
  EXPECT_EQ(BuildMiPropQuery({L"root/cimv2", L"Test_Thing", L"", {}}), L"SELECT  FROM Test_Thing");
  EXPECT_EQ(BuildMiPropQuery({L"root/cimv2", L"Test_Thing", L"  WHERE Count > 1 \t\r\n", {L"Name"}}),
            L"SELECT Name FROM Test_Thing   WHERE Count > 1");
}

TEST_F(MiCollectionTest, SetFilterTwiceIsAlreadyInitialized)
{
  MakeDefault({L"Name"});
  EXPECT_EQ(collection->GetQuery(), L"SELECT Name FROM Test_Thing");
  EXPECT_EQ(collection->GetNamespace(), L"root/cimv2");
  EXPECT_EQ(KeldaErrorOf([&] { collection->SetFilter({L"root/cimv2", L"Other", L"", {L"Name"}}); }),
            L"Already initialized");
  EXPECT_EQ(collection->GetQuery(), L"SELECT Name FROM Test_Thing");
}

TEST_F(MiCollectionTest, EmptyClassOrNamespaceIsInvalid)
{
  Make(TestHostObject(), User());
  try
  {
    collection->SetFilter({L"root/cimv2", L"", L"", {L"Name"}});
    FAIL() << "no exception";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"Filter is invalid");
    EXPECT_NE(get_throw_function(error).find("MiCollection::SetFilter"), std::string::npos);
  }
  EXPECT_EQ(KeldaErrorOf([&] { collection->SetFilter({L"", L"Test_Thing", L"", {L"Name"}}); }), L"Filter is invalid");
  // A refused filter leaves the collection unconfigured.
  collection->SetFilter({L"root/cimv2", L"Test_Thing", L"", {L"Name"}});
  EXPECT_EQ(collection->GetQuery(), L"SELECT Name FROM Test_Thing");
}

// ---- records ----

TEST_F(MiCollectionTest, OneKeylessRecordPerInstanceInOneBatch)
{
  provider->Add({{L"Name", std::wstring(L"a")}, {L"Count", std::uint32_t{1}}});
  provider->Add({{L"Name", std::wstring(L"b")}, {L"Count", std::uint32_t{2}}});
  provider->Add({{L"Name", std::wstring(L"c")}, {L"Count", std::uint32_t{3}}});
  MakeDefault({L"Name", L"Count"});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  EXPECT_EQ(subscriber->RecordCalls(), 1);
  EXPECT_EQ(subscriber->RecordCollection(), collection->GetId());
  const auto records = subscriber->Records();
  ASSERT_EQ(records.size(), 3u);
  // Fields in filter order (checked before any lookup sorts them), names shared by every record.
  const auto* first = dynamic_cast<CRecordOnVectorNoKey*>(records[0].get());
  ASSERT_NE(first, nullptr);
  const auto nameOfName = first->GetFields().at(0).GetSharedName();
  const auto nameOfCount = first->GetFields().at(1).GetSharedName();
  for (const auto& shared : records)
  {
    const auto& fields = dynamic_cast<CRecordOnVectorNoKey&>(*shared).GetFields();
    ASSERT_EQ(fields.size(), 2u);
    EXPECT_EQ(fields[0].GetName(), L"Name");
    EXPECT_EQ(fields[1].GetName(), L"Count");
    EXPECT_EQ(fields[0].GetSharedName(), nameOfName);
    EXPECT_EQ(fields[1].GetSharedName(), nameOfCount);
  }
  const std::wstring names[] = {L"a", L"b", L"c"};
  for (std::size_t i = 0; i < records.size(); ++i)
  {
    auto* record = dynamic_cast<CRecordOnVectorNoKey*>(records[i].get());
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->GetKey(), nullptr);
    EXPECT_EQ(record->GetType(), collector::ni::impl::kMiPropRecordType);
    EXPECT_EQ(std::get<tstring>(record->GetField(L"Name")->GetValue()), names[i]);
    EXPECT_EQ(std::get<__int64>(record->GetField(L"Count")->GetValue()), static_cast<__int64>(i + 1));
  }
}

TEST_F(MiCollectionTest, IntegersDatesAndStringsBecomeTheirFieldTypes)
{
  cim::DateTime when;
  when.year = 2020;
  when.month = 1;
  when.day = 1;
  when.hour = 12;
  when.utc = 120;
  provider->Add({{L"Name", std::wstring(L"x")}, {L"Big", std::int64_t{-5000000000}}, {L"When", when},
                 {L"Note", std::wstring(L"hello")}});
  MakeDefault({L"Big", L"When", L"Note"});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  const auto records = subscriber->Records();
  ASSERT_EQ(records.size(), 1u);
  auto& record = *records[0];
  EXPECT_EQ(std::get<__int64>(record.GetField(L"Big")->GetValue()), -5000000000LL);
  const auto& date = std::get<COleDateTimeEx>(record.GetField(L"When")->GetValue());
  EXPECT_DOUBLE_EQ(date.GetDate(), COleDateTimeEx(2020, 1, 1, 10, 0, 0).GetDate());
  EXPECT_EQ(std::get<tstring>(record.GetField(L"Note")->GetValue()), L"hello");
}

TEST_F(MiCollectionTest, NullPropertyIsAnEmptyString)
{
  provider->Add({{L"Name", std::wstring(L"x")}});
  MakeDefault({L"Name", L"Count", L"When"});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  const auto records = subscriber->Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(std::get<tstring>(records[0]->GetField(L"Count")->GetValue()), L"");
  EXPECT_EQ(std::get<tstring>(records[0]->GetField(L"When")->GetValue()), L"");
}

TEST_F(MiCollectionTest, NoPropertiesFailThePassAsAnInvalidQuery)
{
  provider->Add({{L"Name", std::wstring(L"x")}});
  MakeDefault({});
  EXPECT_EQ(collection->GetQuery(), L"SELECT  FROM Test_Thing");
  collection->Run();
  // WMI refuses an empty select list with WBEM_E_INVALID_QUERY, which MI reports as code 15.
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_NE(LastError().find(L"The query is not valid for the specified query language"), std::wstring::npos) << LastError();
  EXPECT_TRUE(subscriber->Records().empty());
  EXPECT_EQ(Sink().Count(L"Failed to execute/process root/cimv2:SELECT  FROM Test_Thing"), 1u);
}

TEST_F(MiCollectionTest, ConditionSelectsInstances)
{
  provider->Add({{L"Name", std::wstring(L"a")}, {L"Count", std::uint32_t{1}}});
  provider->Add({{L"Name", std::wstring(L"b")}, {L"Count", std::uint32_t{5}}});
  MakeDefault({L"Name"}, L"WHERE Count > 2 ");
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  const auto records = subscriber->Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(std::get<tstring>(records[0]->GetField(L"Name")->GetValue()), L"b");
  EXPECT_EQ(MiMonitor().LastOperation()->query, L"SELECT Name FROM Test_Thing WHERE Count > 2");
}

TEST_F(MiCollectionTest, EmptyResultNotifiesNobody)
{
  MakeDefault({L"Name"});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  EXPECT_EQ(subscriber->RecordCalls(), 0);
  const auto operation = MiMonitor().LastOperation();
  ASSERT_TRUE(operation);
  EXPECT_TRUE(operation->closed);
}

// ---- failures of a pass ----

TEST_F(MiCollectionTest, BooleanPropertyFailsThePassWithNotImplemented)
{
  provider->Add({{L"Name", std::wstring(L"x")}, {L"Flag", true}});
  MakeDefault({L"Name", L"Flag"});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_EQ(LastError(), get_description(CHResultException(E_NOTIMPL)));
  EXPECT_EQ(Sink().Count(L"Failed to execute/process root/cimv2:SELECT Name,Flag FROM Test_Thing"), 1u);
  EXPECT_EQ(subscriber->RecordCalls(), 0);
}

TEST_F(MiCollectionTest, ElementReadFailureDeliversNoPartialBatch)
{
  provider->Add({{L"Name", std::wstring(L"a")}, {L"Count", std::uint32_t{1}}});
  provider->Add({{L"Name", std::wstring(L"b")}, {L"Count", std::uint32_t{2}}});
  provider->FailElement(1, L"Count", MI_RESULT_ACCESS_DENIED);
  MakeDefault({L"Name", L"Count"});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_EQ(LastError(), L"MI_Instance_GetElement (Access to a CIM resource is not available to the client)");
  EXPECT_EQ(subscriber->RecordCalls(), 0);
  EXPECT_EQ(Sink().Count(L"Failed to execute/process root/cimv2:SELECT Name,Count FROM Test_Thing"), 1u);
}

TEST_F(MiCollectionTest, QueryFailureAfterSomeInstancesDeliversNothing)
{
  provider->Add({{L"Name", std::wstring(L"a")}});
  provider->Add({{L"Name", std::wstring(L"b")}});
  provider->FailQuery(MI_RESULT_FAILED, L"provider broke", 1);
  MakeDefault({L"Name"});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_EQ(LastError(), L"provider broke (A general error occurred, not covered by a more specific error code)");
  EXPECT_EQ(subscriber->RecordCalls(), 0);
}

TEST_F(MiCollectionTest, UnknownClassFailsThePass)
{
  Make(TestHostObject(), User());
  collection->SetFilter({L"root/cimv2", L"No_Such_Class", L"", {L"Name"}});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_NE(LastError().find(L"The specified class does not exist"), std::wstring::npos) << LastError();
  EXPECT_EQ(Sink().Count(L"Failed to execute/process root/cimv2:SELECT Name FROM No_Such_Class"), 1u);
}

TEST_F(MiCollectionTest, MissingApplicationFailsTheConnect)
{
  Make(TestHostObject(), User(), false);
  collection->SetFilter({L"root/cimv2", L"Test_Thing", L"", {L"Name"}});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_EQ(LastError(),
            L"MI_Application_NewDestinationOptions (One or more parameter values passed to the method are not valid)");
}

// ---- the session cache ----

TEST_F(MiCollectionTest, NoUserFailsWithUserIsUnset)
{
  Make(TestHostObject(), nullptr);
  collection->SetFilter({L"root/cimv2", L"Test_Thing", L"", {L"Name"}});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_EQ(LastError(), L"User is unset");
  EXPECT_EQ(Sink().Count(L"Failed to execute/process root/cimv2:SELECT Name FROM Test_Thing"), 1u);
}

TEST_F(MiCollectionTest, NoHostFailsWithHostIsUnset)
{
  Make(nullptr, User());
  collection->SetFilter({L"root/cimv2", L"Test_Thing", L"", {L"Name"}});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_EQ(LastError(), L"Host is unset");
}

TEST_F(MiCollectionTest, EmptyUserNameConnectsWithoutCredentials)
{
  Make(TestHostObject(), User(L"CORP", L"", L"secret"));
  collection->SetFilter({L"root/cimv2", L"Test_Thing", L"", {L"Name"}});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  const auto session = MiMonitor().LastSession();
  ASSERT_TRUE(session);
  EXPECT_EQ(session->destination, std::wstring(L"micoll"));
  EXPECT_EQ(session->protocol, std::wstring(L"WMIDCOM"));
  EXPECT_TRUE(session->credentials.empty());
}

TEST_F(MiCollectionTest, UserCredentialsGoToTheSession)
{
  Make(TestHostObject(), User(L"CORP", L"alice", L"pw"));
  collection->SetFilter({L"root/cimv2", L"Test_Thing", L"", {L"Name"}});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  const auto session = MiMonitor().LastSession();
  ASSERT_TRUE(session);
  ASSERT_EQ(session->credentials.size(), 1u);
  EXPECT_EQ(session->credentials[0].domain, L"CORP");
  EXPECT_EQ(session->credentials[0].user, L"alice");
  EXPECT_EQ(session->credentials[0].password, L"pw");
}

TEST_F(MiCollectionTest, SetUserMakesTheNextUpdateConnectWithTheNewUser)
{
  host.RequireCredentials(L"CORP", L"bob", L"pw");
  provider->Add({{L"Name", std::wstring(L"a")}});
  const long sessionsBefore = MiMonitor().Live().sessions;
  Make(TestHostObject(), User(L"CORP", L"alice", L"pw"));
  collection->SetFilter({L"root/cimv2", L"Test_Thing", L"", {L"Name"}});
  collection->SetUpdatePeriod(1);
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_NE(LastError().find(L"Access to a CIM resource is not available to the client"), std::wstring::npos);
  // The first session stays cached (its connect succeeded) until the user changes.
  EXPECT_EQ(MiMonitor().Live().sessions, sessionsBefore + 1);

  collection->SetUser(User(L"CORP", L"bob", L"pw"));
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  const auto session = MiMonitor().LastSession();
  ASSERT_TRUE(session);
  ASSERT_EQ(session->credentials.size(), 1u);
  EXPECT_EQ(session->credentials[0].user, L"bob");
  EXPECT_EQ(subscriber->RecordCalls(), 1);
  // alice's session was closed once dropped; only bob's is open.
  EXPECT_EQ(MiMonitor().Live().sessions, sessionsBefore + 1);
}

TEST_F(MiCollectionTest, ConnectedSessionIsReusedByLaterUpdates)
{
  MakeDefault({L"Name"});
  collection->SetUpdatePeriod(1);
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  // New sessions would now fail; the cached one still serves.
  host.Refuse(MI_RESULT_ACCESS_DENIED);
  const std::size_t finished = Sink().Count(L"Update finished");
  ASSERT_TRUE(Sink().WaitFor(L"Update finished", finished + 1));
  EXPECT_EQ(collection->GetState(), ICollectionTypes::Running);
  EXPECT_TRUE(LastError().empty());
}

TEST_F(MiCollectionTest, FailedConnectIsRetriedByTheNextUpdate)
{
  host.Refuse(MI_RESULT_ACCESS_DENIED);
  MakeDefault({L"Name"});
  collection->SetUpdatePeriod(1);
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Error));
  EXPECT_EQ(LastError(), L"MI_Application_NewSession (Access to a CIM resource is not available to the client)");
  host.Accept();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
}
} // namespace

// A "MiProp" collection on a real pool against the test host "micoll", whose class Test_Thing
// has a property of each kind the collection meets; subscribers and log lines are recorded.
// Every test leaves every MI handle closed.
#pragma once

#include "MiCollection.h"
#include "TestSupport.h"

#include "Cim/Testing/ClassBuilder.h"
#include "Cim/Testing/MiFaults.h"
#include "Cim/Testing/TestHost.h"
#include "Collector/Interfaces/IUser.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace micollection_test
{
using collector::ni::ICollectionTypes;
using collector::ni::impl::MiCollection;
using States = ICollectionTypes::States;

class CCredentialUser : public collector::ni::IUser
{
public:
  CCredentialUser(std::wstring domain, std::wstring user, std::wstring password)
    : m_domain(std::move(domain)), m_user(std::move(user)), m_password(std::move(password))
  {
  }
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return m_domain.empty() ? m_user : m_domain + L"\\" + m_user; }
  tstring GetDomain() const override { return m_domain; }
  tstring GetUserName() const override { return m_user; }
  tstring GetPassword() const override { return m_password; }

private:
  std::wstring m_domain;
  std::wstring m_user;
  std::wstring m_password;
};

class MiCollectionTest : public ::testing::Test
{
protected:
  void SetUp() override
  {
    cim::testing::MiMonitor().ClearHistory();
    m_baseline = cim::testing::MiMonitor().Live();
    provider = host.AddClass(cim::testing::ClassBuilder(L"Test_Thing")
                                 .Key(L"Name")
                                 .Property(L"Count", cim::Type::UInt32)
                                 .Property(L"Big", cim::Type::SInt64)
                                 .Property(L"Flag", cim::Type::Boolean)
                                 .Property(L"Ratio", cim::Type::Real64)
                                 .Property(L"Letter", cim::Type::Char16)
                                 .Property(L"When", cim::Type::DateTime)
                                 .Property(L"Note", cim::Type::String)
                                 .Build());
    threadPool.emplace(2);
    parent = create_cancellation();
  }

  void TearDown() override
  {
    if (collection)
    {
      collection->Stop(true);
      collection.reset();
    }
    // Joins the workers first: one may still be ending an update that logs.
    threadPool->shutdown();
    threadPool.reset();
    const auto live = cim::testing::MiMonitor().Live();
    EXPECT_EQ(live.sessions, m_baseline.sessions);
    EXPECT_EQ(live.destinationOptions, m_baseline.destinationOptions);
    EXPECT_EQ(live.operations, m_baseline.operations);
    EXPECT_EQ(live.applications, m_baseline.applications);
  }

  std::shared_ptr<collector::ni::IHost> TestHostObject() { return std::make_shared<natc_test::CFixedHost>(host.Destination()); }

  static std::shared_ptr<collector::ni::IUser> User(std::wstring domain = L"", std::wstring name = L"",
                                                    std::wstring password = L"")
  {
    return std::make_shared<CCredentialUser>(std::move(domain), std::move(name), std::move(password));
  }

  // Builds the collection as a task does: log, pool, token, host, user, class "MiProp"; then the
  // application and the subscriber.
  void Make(const std::shared_ptr<collector::ni::IHost>& hostObject,
            const std::shared_ptr<collector::ni::IUser>& user, bool withApplication = true)
  {
    collection = std::make_shared<MiCollection>(root, *threadPool, parent, hostObject, user,
                                                std::make_shared<natc_test::CFixedClass>(L"MiProp"));
    if (withApplication)
    {
      collection->SetApplication(CMiApplication::CreateInstance());
    }
    subscriber = std::make_shared<natc_test::CRecordingSubscriber>();
    collection->Subscribe(subscriber);
  }

  void MakeDefault(std::vector<std::wstring> properties, std::wstring condition = L"")
  {
    Make(TestHostObject(), User());
    collection->SetFilter({L"root/cimv2", L"Test_Thing", std::move(condition), std::move(properties)});
  }

  // The description of the last Error notified, or empty.
  std::wstring LastError() const
  {
    std::wstring description;
    for (const auto& change : subscriber->Changes())
    {
      if (change.state == ICollectionTypes::Error)
        description = change.description;
    }
    return description;
  }

  natc_test::CCapturingSink& Sink() { return m_capture.Sink(); }

  natc_test::CLoggerCapture m_capture{ELogLevel::Debug};
  cim::testing::TestHost host{L"micoll"};
  std::shared_ptr<cim::testing::TestProvider> provider;
  std::shared_ptr<CLog> root = std::make_shared<CLog>(nullptr, L"[NatC]");
  std::optional<pool> threadPool;
  std::shared_ptr<ICancellation> parent;
  std::shared_ptr<MiCollection> collection;
  std::shared_ptr<natc_test::CRecordingSubscriber> subscriber;

private:
  cim::testing::Monitor::Counts m_baseline;
};
} // namespace micollection_test

// "MiProp" against this machine: Win32_OperatingSystem through the local MI providers.
#include "MiCollection.h"
#include "TestSupport.h"

#include "KeldaKernel/Cancellation.h"

#include <gtest/gtest.h>

namespace
{
using collector::ni::ICollectionTypes;

TEST(MiPropMachine, OperatingSystemGivesOneRecordWithCaption)
{
  const natc_test::CLoggerCapture capture(ELogLevel::Info);
  std::optional<pool> threadPool(std::in_place, 2);
  auto collection = std::make_shared<collector::ni::impl::MiCollection>(
      std::make_shared<CLog>(nullptr, L"[NatC]"), *threadPool, create_cancellation(),
      std::make_shared<natc_test::CFixedHost>(L"localhost"), std::make_shared<natc_test::CFixedUser>(L""),
      std::make_shared<natc_test::CFixedClass>(L"MiProp"));
  collection->SetApplication(CMiApplication::CreateInstance());
  auto subscriber = std::make_shared<natc_test::CRecordingSubscriber>();
  collection->Subscribe(subscriber);
  collection->SetFilter({L"root/cimv2", L"Win32_OperatingSystem", L"", {L"Caption", L"Version"}});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  collection->Stop(true);
  const auto records = subscriber->Records();
  ASSERT_EQ(records.size(), 1u);
  const auto& caption = std::get<tstring>(records[0]->GetField(L"Caption")->GetValue());
  EXPECT_FALSE(caption.empty());
  EXPECT_FALSE(std::get<tstring>(records[0]->GetField(L"Version")->GetValue()).empty());
}
} // namespace

// The session over a host directory that checks logons: a collection whose first credential is
// wrong fails at EvtQuery, and recovers once SetUser gives it the right one.
#include "EventTestSupport.h"

#include "KeldaKernel/Exceptions.h"
#include "WinEvt/Hosts.h"

#include <gtest/gtest.h>

namespace
{
using namespace events_test;

TEST(EventSessionLog, AWrongFirstCredentialRecoversAfterSetUser)
{
  CTempHost host;
  CChannelWriter writer(host.ChannelFile("System"), "System");
  writer.AppendMany(1, 3);
  natc::winevt::RegisterHostAccount(host.Path().string(), L"bob", L"right", true);
  SCollectionParts parts;
  parts.user = std::make_shared<CUser>(L"CORP", L"bob", L"wrong");
  auto collection = parts.Make(host.Path().wstring());
  auto subscriber = std::make_shared<CCollectingSubscriber>();
  collection->Subscribe(subscriber);
  auto filters = Filters({L"System"});
  collection->SetFilter(filters);

  EXPECT_THROW(collection->UpdateOnce(), CHResultException);
  collection->SetUser(std::make_shared<CUser>(L"CORP", L"bob", L"right"));
  collection->UpdateOnce();
  EXPECT_EQ(subscriber->Records().size(), 3u);
  natc::winevt::ForgetHostAccount(host.Path().string());
}
} // namespace

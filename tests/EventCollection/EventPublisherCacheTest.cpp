// Publisher metadata during an update: opened once per provider (also when it has none), used
// for every event of that provider, and closed when the update ends, so that the next update
// opens it afresh.
#include "EventTestSupport.h"
#include "ScriptedApi.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace
{
using namespace events_test;

constexpr std::uintptr_t firstMetadata = 0x100;

// Providers whose metadata opens, the handle each open gave, and what was closed.
struct SPublishers
{
  std::map<std::wstring, std::wstring> messages; // provider -> description text
  std::vector<std::wstring> opened;              // every open, by provider, in order
  std::map<std::uintptr_t, std::wstring> handles;
  std::multiset<std::uintptr_t> closed;
};
SPublishers g_publishers;

EVT_HANDLE CountingOpen(EVT_HANDLE, LPCWSTR provider, LPCWSTR, LCID, DWORD) noexcept
{
  g_publishers.opened.emplace_back(provider);
  if (g_publishers.messages.count(provider) == 0)
  {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return nullptr;
  }
  const std::uintptr_t value = firstMetadata + g_publishers.opened.size();
  g_publishers.handles[value] = provider;
  return AsHandle(value);
}

BOOL MessageOfProvider(EVT_HANDLE metadata, EVT_HANDLE, DWORD, DWORD, PEVT_VARIANT, DWORD, DWORD size, LPWSTR buffer,
                       PDWORD used) noexcept
{
  const auto handle = g_publishers.handles.find(HandleValue(metadata));
  if (handle == g_publishers.handles.end() || g_publishers.closed.count(HandleValue(metadata)) != 0)
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  const std::wstring& text = g_publishers.messages[handle->second];
  *used = static_cast<DWORD>(text.size() + 1);
  if (buffer == nullptr || size < *used)
  {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  std::copy(text.begin(), text.end(), buffer);
  buffer[text.size()] = L'\0';
  return TRUE;
}

BOOL CloseAny(EVT_HANDLE handle) noexcept
{
  const std::uintptr_t value = HandleValue(handle);
  if (g_publishers.handles.count(value) != 0)
    g_publishers.closed.insert(value);
  return ScriptedClose(handle);
}

std::wstring EventOf(const std::wstring& provider, long long recordId)
{
  return L"<Event><System><Provider Name='" + provider + L"'/><EventID>1</EventID><EventRecordID>" +
         std::to_wstring(recordId) + L"</EventRecordID><Channel>System</Channel></System></Event>";
}

class EventPublisherCache : public testing::Test
{
protected:
  void SetUp() override
  {
    g_api = SScriptedApi{};
    g_publishers = SPublishers{};
    SEventLogApi api = ScriptedTable();
    api.OpenPublisherMetadata = &CountingOpen;
    api.FormatMessage = &MessageOfProvider;
    api.Close = &CloseAny;
    collection = parts.Make(L"server01", api);
    subscriber = std::make_shared<CCollectingSubscriber>();
    collection->Subscribe(subscriber);
    auto filters = Filters({L"System"});
    collection->SetFilter(filters);
  }

  std::vector<std::wstring> Descriptions() const
  {
    std::vector<std::wstring> texts;
    for (const auto& record : subscriber->Records())
      texts.push_back(Text(*record, L"Description"));
    return texts;
  }

  SCollectionParts parts;
  std::shared_ptr<CTestEventCollection> collection;
  std::shared_ptr<CCollectingSubscriber> subscriber;
};

TEST_F(EventPublisherCache, EachProviderIsOpenedOncePerUpdateAndServesAllItsEvents)
{
  g_publishers.messages = {{L"A", L"from A"}, {L"B", L"from B"}};
  long long id = 0;
  for (const wchar_t* provider : {L"A", L"A", L"B", L"A", L"None", L"B", L"None"})
    g_api.events.push_back(EventOf(provider, ++id));
  collection->UpdateOnce();
  EXPECT_EQ(g_publishers.opened, (std::vector<std::wstring>{L"A", L"B", L"None"}));
  const std::wstring a = std::wstring(L"from A") + L'\0';
  const std::wstring b = std::wstring(L"from B") + L'\0';
  EXPECT_EQ(Descriptions(), (std::vector<std::wstring>{a, a, b, a, L"", b, L""}));
}

TEST_F(EventPublisherCache, TheUpdateClosesWhatItOpened)
{
  g_publishers.messages = {{L"A", L"from A"}, {L"B", L"from B"}};
  g_api.events = {EventOf(L"A", 1), EventOf(L"B", 2)};
  collection->UpdateOnce();
  ASSERT_EQ(g_publishers.handles.size(), 2u);
  for (const auto& [handle, provider] : g_publishers.handles)
    EXPECT_EQ(g_publishers.closed.count(handle), 1u) << "metadata of " << std::string(provider.begin(), provider.end());
}

TEST_F(EventPublisherCache, TheNextUpdateSeesMetadataInstalledMeanwhile)
{
  g_api.events = {EventOf(L"Late", 1)};
  collection->UpdateOnce();
  g_publishers.messages[L"Late"] = L"now known";
  g_api.events = {EventOf(L"Late", 2)};
  collection->UpdateOnce();
  EXPECT_EQ(g_publishers.opened, (std::vector<std::wstring>{L"Late", L"Late"}));
  EXPECT_EQ(Descriptions(), (std::vector<std::wstring>{L"", std::wstring(L"now known") + L'\0'}));
}

TEST_F(EventPublisherCache, AFailedUpdateStillClosesTheMetadata)
{
  g_publishers.messages = {{L"A", L"from A"}};
  g_api.events = {EventOf(L"A", 1)};
  g_api.nextFailsAfter = 1;
  g_api.nextError = ERROR_INVALID_PARAMETER;
  EXPECT_ANY_THROW(collection->UpdateOnce());
  ASSERT_EQ(g_publishers.handles.size(), 1u);
  EXPECT_EQ(g_publishers.closed.count(g_publishers.handles.begin()->first), 1u);
}
} // namespace

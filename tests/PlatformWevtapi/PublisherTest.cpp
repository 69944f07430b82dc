#include "TestSupport.h"
#include "WinEvt/PublisherCatalog.h"
#include "WriterSupport.h"

#include <gtest/gtest.h>

namespace
{
using namespace wevtapi_test;

TEST(PublisherMetadata, NoMetadataOnLinuxIsFileNotFound)
{
  SetLastError(0);
  EXPECT_EQ(EvtOpenPublisherMetadata(nullptr, L"Service Control Manager", nullptr, 0, 0), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

// A message source plugged in through the catalog seam.
class FakeMessages : public natc::winevt::PublisherMessages
{
public:
  explicit FakeMessages(DWORD status) : m_status(status) {}
  DWORD Format(DWORD flags, DWORD, std::wstring_view eventXml, std::wstring& text) override
  {
    text = flags == EvtFormatMessageEvent && eventXml.find(L"Natc-Test") != std::wstring_view::npos
             ? L"Index is %1"
             : L"?";
    return m_status;
  }

private:
  DWORD m_status;
};

class FakeCatalog : public natc::winevt::PublisherCatalog
{
public:
  explicit FakeCatalog(DWORD status) : m_status(status) {}
  std::shared_ptr<natc::winevt::PublisherMessages> Open(std::wstring_view provider, const std::string&) override
  {
    return provider == L"Natc-Test" ? std::make_shared<FakeMessages>(m_status) : nullptr;
  }

private:
  DWORD m_status;
};

class FormatMessage : public testing::TestWithParam<DWORD>
{
protected:
  void SetUp() override
  {
    WriteEvents(host.File("Application.evtx"), 1);
    previous = natc::winevt::SetPublisherCatalog(std::make_shared<FakeCatalog>(GetParam()));
    session = OpenSession(host.WidePath());
    query = Handle(EvtQuery(session.get(), L"Application", L"*", EvtQueryChannelPath));
    DWORD returned = 0;
    EVT_HANDLE raw = nullptr;
    ASSERT_TRUE(EvtNext(query.get(), 1, &raw, INFINITE, 0, &returned));
    event = Handle(raw);
  }
  void TearDown() override { natc::winevt::SetPublisherCatalog(previous); }

  TempHost host;
  std::shared_ptr<natc::winevt::PublisherCatalog> previous;
  Handle session, query, event;
};

TEST_P(FormatMessage, SizeInCharactersFirstThenTheText)
{
  Handle metadata(EvtOpenPublisherMetadata(session.get(), L"Natc-Test", nullptr, 0, 0));
  ASSERT_TRUE(metadata);
  EXPECT_FALSE(EvtOpenPublisherMetadata(session.get(), L"Other", nullptr, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  DWORD used = 0;
  EXPECT_FALSE(EvtFormatMessage(metadata.get(), event.get(), 0, 0, nullptr, EvtFormatMessageEvent, 0, nullptr, &used));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(used, 12u); // "Index is %1" and its zero
  std::wstring buffer(used, L'\0');
  const BOOL ok =
    EvtFormatMessage(metadata.get(), event.get(), 0, 0, nullptr, EvtFormatMessageEvent, used, buffer.data(), &used);
  if (GetParam() == ERROR_SUCCESS)
  {
    EXPECT_TRUE(ok);
  }
  else
  {
    EXPECT_FALSE(ok);
    EXPECT_EQ(GetLastError(), ERROR_EVT_UNRESOLVED_VALUE_INSERT);
  }
  EXPECT_STREQ(buffer.c_str(), L"Index is %1");
}

INSTANTIATE_TEST_SUITE_P(Statuses, FormatMessage, testing::Values(ERROR_SUCCESS, ERROR_EVT_UNRESOLVED_VALUE_INSERT));
} // namespace

// Channel files written with the project's .evtx writer, for the Event Log API tests.
#pragma once

#include "TestSupport.h"

#include "Evtx/Writer.h"

#include <functional>
#include <stdexcept>
#include <string>

namespace wevtapi_test
{
// Appends count events (numbered from `first`) to the log at path, creating it when asked.
inline void WriteEvents(const std::string& path, int count, bool create = true, int first = 1,
                        const std::function<void(int, evtx::WriterEvent&)>& shape = {})
{
  evtx::Writer writer;
  std::string error;
  if (!(create ? writer.Create(path, &error) : writer.Open(path, &error)))
    throw std::runtime_error("cannot write " + path + ": " + error);
  for (int i = first; i < first + count; ++i)
  {
    evtx::WriterEvent event;
    event.provider = "Natc-Test";
    event.eventId = static_cast<std::uint16_t>(i % 2 == 0 ? 2 : 1);
    event.level = 4;
    event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(i))});
    event.data.push_back({"Padding", evtx::WriterValue::Text(std::string(200, 'x'))});
    if (shape)
      shape(i, event);
    if (writer.Append(event) == 0)
      throw std::runtime_error("append failed");
  }
}

// A host with an "Application" log of 250 events and a Sysmon log of 5, and a session on it.
class LogsTest : public testing::Test
{
protected:
  void SetUp() override
  {
    WriteEvents(host.File("Application.evtx"), 250);
    WriteEvents(host.File("Microsoft-Windows-Sysmon%4Operational.evtx"), 5);
    session = OpenSession(host.WidePath());
    ASSERT_TRUE(session);
  }

  Handle Query(const wchar_t* path, const wchar_t* text = L"*",
               DWORD flags = EvtQueryChannelPath | EvtQueryForwardDirection)
  {
    return Handle(EvtQuery(session.get(), path, text, flags));
  }

  TempHost host;
  Handle session;
};
} // namespace wevtapi_test

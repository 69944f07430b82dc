// The Event Log API calls the event collection makes, as a table of function pointers. The
// collection uses the system's functions; tests hand it a table whose entries wrap them to
// count calls or to fail as a remote host would (bad credentials, a broken connection).
//   SEventLogApi api;                  // the real functions
//   api.Next = &MyCountingEvtNext;     // in a test
#pragma once

#include "Platform/WinEvt.h"

namespace collector::ni::impl
{
struct SEventLogApi
{
  decltype(&::EvtOpenSession) OpenSession = &::EvtOpenSession;
  decltype(&::EvtQuery) Query = &::EvtQuery;
  decltype(&::EvtNext) Next = &::EvtNext;
  decltype(&::EvtRender) Render = &::EvtRender;
  decltype(&::EvtOpenPublisherMetadata) OpenPublisherMetadata = &::EvtOpenPublisherMetadata;
  decltype(&::EvtFormatMessage) FormatMessage = &::EvtFormatMessage;
  decltype(&::EvtGetEventInfo) GetEventInfo = &::EvtGetEventInfo;
  decltype(&::EvtCreateBookmark) CreateBookmark = &::EvtCreateBookmark;
  decltype(&::EvtUpdateBookmark) UpdateBookmark = &::EvtUpdateBookmark;
  decltype(&::EvtSeek) Seek = &::EvtSeek;
  decltype(&::EvtClose) Close = &::EvtClose;
};
} // namespace collector::ni::impl

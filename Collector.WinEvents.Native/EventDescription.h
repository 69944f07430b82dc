// The "Description" of an event record: the event's message formatted by its provider's
// metadata (EvtOpenPublisherMetadata, EvtFormatMessage with the two-call size protocol).
//   tstring text = FormatEventDescription(api, session, L"Service Control Manager", event);
// Never fails: a provider without metadata gives an empty text; a failed first call gives
// "Event description display failure". After the second call the text is the whole buffer of
// the size EvtFormatMessage reported, terminating zero included, whatever that call returned
// (an unresolved insert, 15029, is accepted silently).
#pragma once

#include "EventLogApi.h"
#include "KeldaKernel/Strings.h"

namespace collector::ni::impl
{
inline constexpr const wchar_t* eventDescriptionFailure = L"Event description display failure";

tstring FormatEventDescription(const SEventLogApi& api, EVT_HANDLE session, const tstring& provider,
                               EVT_HANDLE event);
// The same with the provider's metadata already open (null: the provider has none).
tstring FormatEventDescription(const SEventLogApi& api, EVT_HANDLE metadata, EVT_HANDLE event);
} // namespace collector::ni::impl

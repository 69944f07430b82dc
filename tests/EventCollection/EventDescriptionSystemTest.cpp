// The description of an event through the system's own Event Log API. EvtOpenPublisherMetadata
// fails for a provider the machine does not know
// (https://learn.microsoft.com/en-us/windows/win32/api/winevt/nf-winevt-evtopenpublishermetadata);
// Wine's wevtapi has no such function and aborts the process instead (label wine_gap).
#include "EventDescription.h"

#include <gtest/gtest.h>

namespace
{
using namespace collector::ni::impl;

TEST(EventDescriptionSystem, AProviderWithoutMetadataOnTheMachineGivesAnEmptyText)
{
  const SEventLogApi api;
  EXPECT_EQ(FormatEventDescription(api, nullptr, L"Natc-No-Such-Provider", nullptr), L"");
}
} // namespace

// natc events: runs a "WindowsEvents" collection over a directory of .evtx channel files and
// prints every record and state change as one JSON line on stdout (log lines go to stderr).
//   natc events --logs DIR (--channel NAME)... [--provider NAME] [--event-id N]...
//               [--time-diff MS] [--period S] [--user DOMAIN\NAME] [--password P] [--once]
// Each --channel becomes one filter with the same provider, event identifiers and look-back
// window. --once stops after the first update (exit 1 when it failed); otherwise the collection
// runs until SIGINT or SIGTERM.
#include "CommandRegistry.h"

#include "common/LibraryCollection.h"
#include "common/Progress.h"
#include "common/StopSignals.h"
#include "output/JsonLines.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Pool.h"
#include "KeldaKernel/Strings.h"

#include "common/Arguments.h"

#include <climits>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#ifndef _WIN32
#  include <pwd.h>
#  include <unistd.h>
#endif

namespace
{
using collector::ni::win_events::SFilter;

struct SOptions
{
  std::string logs;
  std::vector<std::wstring> channels;
  std::wstring provider;
  std::vector<std::uint32_t> eventIds;
  std::int64_t timeDiff = 0;
  int period = 60;
  std::optional<std::wstring> user;
  std::wstring password;
  bool once = false;
};

constexpr const char* usage =
  "usage: natc events --logs DIR (--channel NAME)... [--provider NAME] [--event-id N]...\n"
  "                   [--time-diff MS] [--period S] [--user DOMAIN\\NAME] [--password P] [--once]\n";

using natc::ParseNumber;

SOptions ParseOptions(const std::vector<std::string>& arguments)
{
  SOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i)
  {
    const std::string& option = arguments[i];
    if (option == "--once")
    {
      options.once = true;
      continue;
    }
    if (i + 1 >= arguments.size())
      throw std::invalid_argument(option == "--logs" || option == "--channel" || option == "--provider" ||
                                      option == "--event-id" || option == "--time-diff" || option == "--period" ||
                                      option == "--user" || option == "--password"
                                    ? option + " needs a value"
                                    : natc::UnknownOption(option));
    const std::string& value = arguments[++i];
    if (option == "--logs")
      options.logs = value;
    else if (option == "--channel")
      options.channels.push_back(kelda::FromUtf8(value));
    else if (option == "--provider")
      options.provider = kelda::FromUtf8(value);
    else if (option == "--event-id")
      options.eventIds.push_back(static_cast<std::uint32_t>(ParseNumber(option, value, 0, UINT32_MAX)));
    else if (option == "--time-diff")
      options.timeDiff = ParseNumber(option, value, LLONG_MIN, LLONG_MAX);
    else if (option == "--period")
      options.period = static_cast<int>(ParseNumber(option, value, 1, INT_MAX));
    else if (option == "--user")
      options.user = kelda::FromUtf8(value);
    else if (option == "--password")
      options.password = kelda::FromUtf8(value);
    else
      throw std::invalid_argument(natc::UnknownOption(option));
  }
  if (options.logs.empty())
    throw std::invalid_argument("--logs DIR is required");
  if (options.channels.empty())
    throw std::invalid_argument("at least one --channel NAME is required");
  std::error_code error;
  if (!std::filesystem::is_directory(options.logs, error))
    throw std::invalid_argument("--logs " + options.logs + " is not a directory");
  return options;
}

// The account this process runs as, so that the session needs no credentials.
std::wstring ProcessAccount()
{
#ifndef _WIN32
  if (const passwd* entry = getpwuid(geteuid()))
    return L".\\" + kelda::FromUtf8(entry->pw_name);
#endif
  return L".\\user";
}

int RunEvents(const std::vector<std::string>& arguments)
{
  SOptions options;
  try
  {
    options = ParseOptions(arguments);
  }
  catch (const std::invalid_argument& error)
  {
    return natc::UsageError("events", error.what());
  }

  // Before the pool starts, so that its threads inherit the blocked signals.
  const CStopSignals signals;

  // The collection is made as a caller of the library makes it: host, user, task, type name.
  const natc::SLibraryCollection made =
    natc::MakeLibraryCollection(pool(2), L"WindowsEvents", std::filesystem::absolute(options.logs).wstring(),
                                options.user.value_or(ProcessAccount()), options.password);
  auto& collection = made.collection;
  std::vector<SFilter> filters;
  for (const auto& channel : options.channels)
    filters.push_back(SFilter{channel, options.provider, options.timeDiff, options.eventIds});
  dynamic_cast<collector::ni::win_events::ICollectionInit&>(*collection).SetFilter(filters);
  dynamic_cast<collector::ni::ICollectionInit&>(*collection).SetUpdatePeriod(options.period);
  // Only a person at a terminal wants to see a long first read advance.
  std::shared_ptr<natc::CProgressLine> progress;
  if (natc::CProgressLine::Wanted())
  {
    progress = std::make_shared<natc::CProgressLine>(stderr);
    std::string channels;
    for (const auto& channel : options.channels)
      channels += (channels.empty() ? "" : "+") + kelda::ToUtf8(channel);
    progress->Name(collection->GetId(), channels);
    collection->Subscribe(progress);
  }
  const int status = natc::RunAndPrint(made, std::make_shared<natc::JsonLinePrinter>(L"WindowsEvents", stdout),
                                       options.once, signals);
  if (progress)
    progress->Finish();
  return status;
}

NatcCommand eventsCommand{"events", "print the records of a WindowsEvents collection over a directory of .evtx logs",
                          usage, &RunEvents};
} // namespace

// natc props --class NAME (--property NAME)... [--condition TEXT] [--namespace NS] [--period S] [--once]
// Runs a "MiProp" collection against this machine, made through the library's factory, pools
// and task, and prints its records and state changes as JSON lines. --once stops after the first update (exit 1 if it failed);
// otherwise it runs until SIGINT or SIGTERM.
#include "CommandRegistry.h"
#include "common/StopSignals.h"
#include "output/JsonLines.h"

#include "common/Arguments.h"
#include "common/LibraryCollection.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Pool.h"
#include "KeldaKernel/Strings.h"

#include <charconv>
#include <cstdio>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

const char kUsage[] = "usage: natc props --class NAME (--property NAME)... [--condition TEXT] [--namespace NS] "
                      "[--period SECONDS] [--once]\n";

struct SPropsOptions
{
  collector::ni::mi::Filter filter;
  std::optional<int> period;
  bool once = false;
};

int ParsePeriod(const std::string& text)
{
  int seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size() || seconds < 1)
  {
    throw std::invalid_argument("--period needs a whole number of seconds, at least 1: '" + text + "'");
  }
  return seconds;
}

// Throws std::invalid_argument with a message naming the problem.
SPropsOptions ParseProps(const std::vector<std::string>& arguments)
{
  SPropsOptions options;
  options.filter.Namespace = L"root/cimv2";
  bool haveClass = false;
  for (std::size_t i = 0; i < arguments.size(); ++i)
  {
    const std::string& option = arguments[i];
    if (option == "--once")
    {
      options.once = true;
      continue;
    }
    if (option != "--class" && option != "--property" && option != "--condition" && option != "--namespace" &&
        option != "--period")
    {
      throw std::invalid_argument(natc::UnknownOption(option));
    }
    if (i + 1 >= arguments.size())
    {
      throw std::invalid_argument(option + " needs a value");
    }
    const std::string& value = arguments[++i];
    if (value.empty() && option != "--condition")
    {
      throw std::invalid_argument(option + " must not be empty");
    }
    if (option == "--class")
    {
      if (haveClass)
      {
        throw std::invalid_argument("--class given twice");
      }
      haveClass = true;
      options.filter.Class = kelda::FromUtf8(value);
    }
    else if (option == "--property")
    {
      options.filter.Properties.push_back(kelda::FromUtf8(value));
    }
    else if (option == "--condition")
    {
      options.filter.Condition = kelda::FromUtf8(value);
    }
    else if (option == "--namespace")
    {
      options.filter.Namespace = kelda::FromUtf8(value);
    }
    else
    {
      options.period = ParsePeriod(value);
    }
  }
  if (!haveClass)
  {
    throw std::invalid_argument("--class is required");
  }
  return options;
}

int RunProps(const std::vector<std::string>& arguments)
{
  SPropsOptions options;
  try
  {
    options = ParseProps(arguments);
  }
  catch (const std::invalid_argument& error)
  {
    return natc::UsageError("props", error.what());
  }

  // Before the pool starts, so that its threads inherit the blocked signals.
  const CStopSignals signals;

  // The collection is made as a caller of the library makes it; an empty account runs the
  // session under this process's own identity.
  const natc::SLibraryCollection made = natc::MakeLibraryCollection(pool(2), L"MiProp", L"localhost", L"", L"");
  auto& collection = made.collection;
  dynamic_cast<collector::ni::mi::IMiCollectionInit&>(*collection).SetFilter(options.filter);
  if (options.period)
  {
    dynamic_cast<collector::ni::ICollectionInit&>(*collection).SetUpdatePeriod(*options.period);
  }
  return natc::RunAndPrint(made, std::make_shared<natc::JsonLinePrinter>(L"MiProp", stdout), options.once,
                           signals);
}

NatcCommand propsCommand{"props", "run a \"MiProp\" WQL collection on this machine and print JSON lines", kUsage, &RunProps};
} // namespace

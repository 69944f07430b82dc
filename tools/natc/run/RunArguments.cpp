#include "RunArguments.h"

#include <cmath>
#include <cstdlib>

namespace natc::run
{
const char* const runUsage =
  "usage: natc run [CONFIG] [--check] [--duration S] [--logs DIR] [--threads N] [--state FILE]\n"
  "  CONFIG        JSON configuration of hosts, users, tasks and collections (see\n"
  "                examples/natc-run.json); without it, this machine's counters, its\n"
  "                operating system and the event logs of DIR (or generated demo logs).\n"
  "                A user's \"password\" is a string, {\"env\": \"NAME\"} or {\"file\": \"PATH\"}\n"
  "  --check       check the configuration as a start would (WQL, counter classes on this\n"
  "                machine's MI, filters), list every problem, start nothing; exit 0 or 2\n"
  "  --duration S  stop after S seconds (default: run until SIGINT or SIGTERM)\n"
  "  --logs DIR    event log directory (.evtx files) for the default configuration\n"
  "  --threads N   worker threads (default: one per core, at least two)\n"
  "  --state FILE  keep event bookmarks in FILE: a restart resumes after the last event\n"
  "                printed (a missing FILE starts fresh)\n"
  "Prints every record and state change as one JSON line on stdout; logs go to stderr\n"
  "(level from NATC_LOG_LEVEL: debug, info, error, off). Exit status: 0 a clean stop, 2 a bad\n"
  "command line or configuration, 1 a failure while running; SIGINT or SIGTERM stop everything\n"
  "with Stop(true), a second SIGINT exits at once (130).\n";

namespace
{
std::string Value(const std::vector<std::string>& arguments, std::size_t& index)
{
  if (index + 1 >= arguments.size())
  {
    throw std::invalid_argument(arguments[index] + " needs a value");
  }
  return arguments[++index];
}
} // namespace

SRunArguments ParseRunArguments(const std::vector<std::string>& arguments)
{
  SRunArguments parsed;
  for (std::size_t i = 0; i < arguments.size(); ++i)
  {
    const std::string& argument = arguments[i];
    if (argument == "--check")
    {
      parsed.check = true;
    }
    else if (argument == "--duration")
    {
      const std::string text = Value(arguments, i);
      char* end = nullptr;
      const double seconds = std::strtod(text.c_str(), &end);
      if (text.empty() || end == nullptr || *end != '\0' || !std::isfinite(seconds) || seconds < 0)
      {
        throw std::invalid_argument("--duration needs a number of seconds, not '" + text + "'");
      }
      parsed.duration = seconds;
    }
    else if (argument == "--logs")
    {
      parsed.logDirectory = Value(arguments, i);
      if (parsed.logDirectory.empty())
      {
        throw std::invalid_argument("--logs needs a directory");
      }
    }
    else if (argument == "--threads")
    {
      const std::string text = Value(arguments, i);
      char* end = nullptr;
      const long threads = std::strtol(text.c_str(), &end, 10);
      if (text.empty() || *end != '\0' || threads < 1 || threads > 256)
      {
        throw std::invalid_argument("--threads needs a number from 1 to 256, not '" + text + "'");
      }
      parsed.threads = static_cast<unsigned>(threads);
    }
    else if (argument == "--state")
    {
      parsed.stateFile = Value(arguments, i);
      if (parsed.stateFile.empty())
      {
        throw std::invalid_argument("--state needs a file");
      }
    }
    else if (!argument.empty() && argument[0] == '-')
    {
      throw std::invalid_argument("unknown option '" + argument + "'");
    }
    else if (parsed.configFile.empty())
    {
      parsed.configFile = argument;
    }
    else
    {
      throw std::invalid_argument("only one configuration file, not '" + argument + "' as well");
    }
  }
  if (!parsed.configFile.empty() && !parsed.logDirectory.empty())
  {
    throw std::invalid_argument("--logs applies to the default configuration only; "
                                "name the log directory as a host in " + parsed.configFile);
  }
  return parsed;
}
} // namespace natc::run

// The natc binary's command line: every command and sub-command answers -h and --help with its
// usage on stdout and exit 0; an unknown option is named on stderr with a pointer at --help,
// exit 2, and nothing on stdout.
#include "TestSupport/CommandOutput.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
const char* const kCommands[] = {"run", "events", "props", "perf", "evtx", "evtx dump", "evtx info", "demo"};

std::string Natc(const std::string& arguments)
{
  return std::string(NATC_BINARY) + " " + arguments;
}

// The command's stderr alone, as lines (its stdout is thrown away).
CommandOutput Stderr(const std::string& arguments)
{
  return RunCommand("(" + Natc(arguments) + " 2>&1 >/dev/null)");
}

std::string Joined(const CommandOutput& output)
{
  std::string text;
  for (const auto& line : output.lines)
    text += line + "\n";
  return text;
}

TEST(NatcCommandLine, EveryCommandAnswersHelpOnStdout)
{
  for (const std::string command : kCommands)
  {
    const std::string name = command.substr(0, command.find(' '));
    for (const char* help : {"-h", "--help"})
    {
      SCOPED_TRACE(command + " " + help);
      // Only stdout is read: the usage must be there, not on stderr.
      const CommandOutput output = RunCommand(Natc(command + " " + help));
      EXPECT_EQ(output.status, 0);
      ASSERT_FALSE(output.lines.empty());
      EXPECT_EQ(output.lines.front().rfind("usage: natc " + name, 0), 0u) << Joined(output);
    }
  }
}

TEST(NatcCommandLine, HelpAfterOtherArgumentsStillAnswers)
{
  const CommandOutput output = RunCommand(Natc("events --channel System --help"));
  EXPECT_EQ(output.status, 0);
  ASSERT_FALSE(output.lines.empty());
  EXPECT_EQ(output.lines.front().rfind("usage: natc events", 0), 0u) << Joined(output);
}

TEST(NatcCommandLine, ToolAndHelpCommandAnswerOnStdout)
{
  for (const char* arguments : {"--help", "-h", "help", "help events"})
  {
    SCOPED_TRACE(arguments);
    const CommandOutput output = RunCommand(Natc(arguments));
    EXPECT_EQ(output.status, 0);
    ASSERT_FALSE(output.lines.empty());
    EXPECT_EQ(output.lines.front().rfind("usage: natc", 0), 0u) << Joined(output);
  }
}

TEST(NatcCommandLine, UnknownOptionNamesItselfAndPointsAtHelp)
{
  for (const std::string command : kCommands)
  {
    SCOPED_TRACE(command);
    const std::string name = command.substr(0, command.find(' '));
    const CommandOutput out = RunCommand(Natc(command + " --bogus-option"));
    EXPECT_EQ(out.status, 2);
    EXPECT_TRUE(out.lines.empty()) << Joined(out);
    const CommandOutput err = Stderr(command + " --bogus-option");
    EXPECT_EQ(err.status, 2);
    ASSERT_FALSE(err.lines.empty());
    EXPECT_NE(err.lines.front().find("unknown option '--bogus-option'"), std::string::npos) << Joined(err);
    EXPECT_NE(err.lines.front().find("'natc " + name + " --help'"), std::string::npos) << Joined(err);
  }
}

// A command line that is fine but fails while running: exit 1, not 2.
TEST(NatcCommandLine, FailureWhileRunningExitsOne)
{
  const CommandOutput err = Stderr("evtx info /nonexistent/natc-no-such-file.evtx");
  EXPECT_EQ(err.status, 1);
  ASSERT_FALSE(err.lines.empty());
  EXPECT_NE(err.lines.front().find("natc-no-such-file.evtx"), std::string::npos) << Joined(err);
}

TEST(NatcCommandLine, UnknownCommandExitsTwo)
{
  const CommandOutput err = Stderr("frobnicate");
  EXPECT_EQ(err.status, 2);
  ASSERT_FALSE(err.lines.empty());
  EXPECT_NE(err.lines.front().find("unknown command 'frobnicate'"), std::string::npos) << Joined(err);
}
} // namespace

// natc run's configuration: the example file and the embedded default parse; every malformed
// input is refused with the file, the line and the reason. Pure: no collector is built.
#include "run/DefaultConfig.h"
#include "run/JsonWithLines.h"
#include "run/RunArguments.h"
#include "run/RunConfig.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

using namespace natc::run;

namespace
{
std::string ReadExample()
{
  std::ifstream file(std::string(NATC_SOURCE_DIR) + "/examples/natc-run.json");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Expects `text` to be refused at `line` with a reason that contains `fragment`.
void ExpectRefused(const std::string& text, int line, const std::string& fragment)
{
  try
  {
    ParseRunConfig(text, "bad.json");
    ADD_FAILURE() << "accepted:\n" << text;
  }
  catch (const CConfigError& error)
  {
    EXPECT_EQ(error.File(), "bad.json");
    EXPECT_EQ(error.Line(), line) << error.what();
    EXPECT_NE(error.Reason().find(fragment), std::string::npos) << error.what();
    EXPECT_EQ(std::string(error.what()).rfind("bad.json:" + std::to_string(line) + ": ", 0), 0u) << error.what();
  }
}

// A valid configuration with one collection whose body is `collection` (on line 5).
std::string WithCollection(const std::string& collection)
{
  return "{\n"
         "  \"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n"
         "  \"tasks\": [{\"host\": \"h\",\n"
         "    \"collections\": [\n" +
         collection +
         "\n    ]}]\n"
         "}\n";
}

TEST(RunConfigTest, ExampleFileParsesCompletely)
{
  const SRunConfig config = ParseRunConfig(ReadExample(), "natc-run.json");
  ASSERT_EQ(config.hosts.size(), 3u);
  EXPECT_EQ(config.hosts[1].name, L"/var/log/winevt/Logs");
  ASSERT_EQ(config.users.size(), 2u);
  EXPECT_EQ(config.users[0].name, L"CORP\\svc-monitor");
  ASSERT_EQ(config.tasks.size(), 3u);
  EXPECT_EQ(config.tasks[0].user, "");
  EXPECT_EQ(config.tasks[2].user, "monitor");
  EXPECT_EQ(config.users[0].passwordSource.kind, SPasswordSource::EKind::Environment);
  EXPECT_EQ(config.users[0].passwordSource.name, "NATC_MONITOR_PASSWORD");
  EXPECT_EQ(config.users[1].passwordSource.kind, SPasswordSource::EKind::File);

  const auto& perf = config.tasks[0].collections[0];
  EXPECT_EQ(perf.type, L"MiPerf");
  EXPECT_EQ(perf.period, 5);
  ASSERT_EQ(perf.counters.size(), 4u);
  EXPECT_EQ(perf.counters[0].ClassName, L"Win32_PerfRawData_PerfOS_Processor");
  EXPECT_EQ(std::get<tstring>(perf.counters[0].TargetValue), L"cpu");
  EXPECT_DOUBLE_EQ(perf.counters[1].Factor, 0.000001);
  EXPECT_EQ(std::get<__int64>(perf.counters[2].TargetValue), 1);
  EXPECT_DOUBLE_EQ(std::get<double>(perf.counters[3].TargetValue), 2.5);

  const auto& services = config.tasks[0].collections[1];
  EXPECT_EQ(services.miFilter.Class, L"Win32_Service");
  EXPECT_EQ(services.miFilter.Condition, L"WHERE StartMode='Auto'");
  EXPECT_EQ(services.miFilter.Properties.size(), 3u);

  const auto& events = config.tasks[1].collections[0];
  ASSERT_EQ(events.eventFilters.size(), 2u);
  EXPECT_EQ(events.eventFilters[0].Provider, L"Service Control Manager");
  EXPECT_EQ(events.eventFilters[0].TimeDiff, 86400000);
  EXPECT_EQ(events.eventFilters[0].EventIds, (std::vector<std::uint32_t>{7036, 7040}));
  EXPECT_EQ(events.eventFilters[1].Path, L"Application");
  EXPECT_FALSE(config.tasks[2].collections[0].period.has_value());
}

TEST(RunConfigTest, DefaultConfigurationParsesWithTheLogDirectoryEscaped)
{
  const SRunConfig config = ParseRunConfig(DefaultRunConfigText("/tmp/a \"quoted\" dir"), "(default)");
  ASSERT_EQ(config.hosts.size(), 2u);
  EXPECT_EQ(config.hosts[1].name, L"/tmp/a \"quoted\" dir");
  std::vector<std::wstring> types;
  for (const auto& task : config.tasks)
  {
    for (const auto& collection : task.collections)
    {
      types.push_back(collection.type);
    }
  }
  EXPECT_EQ(types, (std::vector<std::wstring>{L"MiPerf", L"MiProp", L"WindowsEvents"}));
  // Processor, memory, disk and network counters.
  std::string classes;
  for (const auto& counter : config.tasks[0].collections[0].counters)
  {
    classes += kelda::ToUtf8(counter.ClassName) + " ";
  }
  for (const char* part : {"Processor", "Memory", "PhysicalDisk", "NetworkInterface"})
  {
    EXPECT_NE(classes.find(part), std::string::npos) << part;
  }
}

TEST(RunConfigTest, SyntaxErrorsNameTheirLine)
{
  ExpectRefused("{\n  \"hosts\": [\n    {\"id\": \"h\" \"name\": \"x\"}\n  ]\n}\n", 3, "not valid JSON");
  ExpectRefused("{\n  \"hosts\": [],\n", 3, "not valid JSON");
  ExpectRefused("", 1, "not valid JSON");
  ExpectRefused("{\n  \"hosts\": [1,],\n  \"tasks\": []\n}", 2, "not valid JSON");
}

TEST(RunConfigTest, DuplicateKeysAreRefused)
{
  ExpectRefused("{\n  \"hosts\": [],\n  \"hosts\": []\n}\n", 3, "duplicate key \"hosts\"");
}

TEST(RunConfigTest, TopLevelProblems)
{
  ExpectRefused("[]", 1, "expected an object");
  ExpectRefused("{\n  \"tasks\": []\n}", 1, "missing \"hosts\"");
  ExpectRefused("{\n  \"hosts\": [],\n  \"tasks\": []\n}", 2, "hosts: must not be empty");
  ExpectRefused("{\n  \"hosts\": [{\"id\": \"h\", \"name\": \"x\"}],\n  \"task\": []\n}", 3, "unknown key \"task\"");
}

TEST(RunConfigTest, HostAndUserProblems)
{
  ExpectRefused("{\n  \"hosts\": [\n    {\"id\": \"h\", \"name\": \"\"}\n  ],\n  \"tasks\": []\n}", 3,
                "hosts[0].name: must not be empty");
  ExpectRefused("{\n  \"hosts\": [\n    {\"id\": \"h\", \"name\": \"a\"},\n    {\"id\": \"h\", \"name\": \"b\"}\n  ]\n}", 4,
                "duplicate host id \"h\"");
  ExpectRefused("{\n  \"hosts\": [{\"id\": \"h\", \"name\": \"a\"}],\n  \"users\": [\n    {\"id\": \"u\", \"name\": 5}\n  ]\n}",
                4, "users[0].name: expected a string, found an integer");
}

TEST(RunConfigTest, TaskReferencesMustExist)
{
  ExpectRefused("{\n  \"hosts\": [{\"id\": \"h\", \"name\": \"a\"}],\n  \"tasks\": [\n    {\"host\": \"nope\", "
                "\"collections\": []}\n  ]\n}",
                4, "no host with id \"nope\"");
  ExpectRefused("{\n  \"hosts\": [{\"id\": \"h\", \"name\": \"a\"}],\n  \"tasks\": [\n    {\"host\": \"h\",\n"
                "     \"user\": \"ghost\", \"collections\": []}\n  ]\n}",
                5, "no user with id \"ghost\"");
  ExpectRefused("{\n  \"hosts\": [{\"id\": \"h\", \"name\": \"a\"}],\n  \"tasks\": [\n    {\"host\": \"h\",\n"
                "     \"collections\": []}\n  ]\n}",
                5, "collections: must not be empty");
}

TEST(RunConfigTest, CollectionTypesAreExact)
{
  ExpectRefused(WithCollection("      {\"type\": \"miprop\", \"filter\": {}}"), 5,
                "unknown collection type \"miprop\"");
  ExpectRefused(WithCollection("      {\"type\": \"miprop\", \"filter\": {}}"), 5, "did you mean \"MiProp\"");
  ExpectRefused(WithCollection("      {\"filters\": []}"), 5, "missing \"type\"");
}

TEST(RunConfigTest, CollectionBodiesAreChecked)
{
  ExpectRefused(WithCollection("      {\"type\": \"WindowsEvents\",\n       \"filters\": []}"), 6,
                "filters: must not be empty");
  ExpectRefused(WithCollection("      {\"type\": \"WindowsEvents\",\n       \"filters\": [{\"path\": \"\"}]}"), 6,
                "filters[0].path: must not be empty");
  ExpectRefused(WithCollection("      {\"type\": \"WindowsEvents\", \"filters\": [\n        {\"path\": \"System\", "
                               "\"eventIds\": [-1]}]}"),
                6, "eventIds[0]: must be between 0 and 4294967295");
  ExpectRefused(WithCollection("      {\"type\": \"MiProp\",\n       \"filter\": {\"namespace\": \"root/cimv2\"}}"), 6,
                "filter: missing \"class\"");
  ExpectRefused(WithCollection("      {\"type\": \"MiProp\", \"filter\": {\"namespace\": \"n\", \"class\": \"c\"},\n"
                               "       \"counters\": []}"),
                6, "unknown key \"counters\"");
  ExpectRefused(WithCollection("      {\"type\": \"MiPerf\", \"counters\": [\n        {\"class\": \"c\", \"counter\": "
                               "\"n\", \"target\": [1]}]}"),
                6, "target: expected a string or a number");
  ExpectRefused(WithCollection("      {\"type\": \"MiPerf\", \"counters\": [{\"class\": \"c\", \"counter\": \"n\"}],\n"
                               "       \"period\": 0}"),
                6, "period: must be between 1 and");
  ExpectRefused(WithCollection("      {\"type\": \"MiPerf\", \"counters\": [{\"class\": \"c\", \"counter\": \"n\"}],\n"
                               "       \"period\": 1.5}"),
                6, "period: expected an integer, found a number");
}

TEST(RunConfigTest, NumbersAtTheEndOfALineBelongToThatLine)
{
  // The parser reads one character past a number: a line break must not move the error down.
  ExpectRefused(WithCollection("      {\"type\": \"MiPerf\", \"counters\": [{\"class\": \"c\", \"counter\": \"n\"}],"
                               " \"period\": -3\n      }"),
                5, "period: must be between 1 and");
}

TEST(JsonWithLinesTest, RecordsTheLineOfEveryValue)
{
  const auto parsed = ParseJsonWithLines("{\n  \"a\": [\n    1,\n    {\"b/c\": true}\n  ],\n  \"d\": null\n}");
  EXPECT_EQ(parsed.LineOf(""), 1);
  EXPECT_EQ(parsed.LineOf("/a"), 2);
  EXPECT_EQ(parsed.LineOf("/a/0"), 3);
  EXPECT_EQ(parsed.LineOf("/a/1"), 4);
  EXPECT_EQ(parsed.LineOf("/a/1/b~1c"), 4);
  EXPECT_EQ(parsed.LineOf("/d"), 6);
  // An absent member falls back to its nearest enclosing value.
  EXPECT_EQ(parsed.LineOf("/a/1/missing"), 4);
  EXPECT_EQ(parsed.value["a"][1]["b/c"], true);
}

// A user entry on line 3 whose password is `password`.
std::string WithPassword(const std::string& password)
{
  return "{\"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n"
         " \"users\": [\n"
         "  {\"id\": \"u\", \"name\": \"CORP\\\\svc\", \"password\": " + password + "}],\n"
         " \"tasks\": [{\"host\": \"h\", \"user\": \"u\", \"collections\": [{\"type\": \"MiProp\",\n"
         "   \"filter\": {\"namespace\": \"root/cimv2\", \"class\": \"Win32_OperatingSystem\"}}]}]}\n";
}

TEST(RunConfigTest, PasswordIsALiteralAnEnvironmentVariableOrAFile)
{
  const SRunConfig literal = ParseRunConfig(WithPassword("\"s3cret\""), "c.json");
  EXPECT_EQ(literal.users.at(0).password, L"s3cret");
  EXPECT_EQ(literal.users.at(0).passwordSource.kind, SPasswordSource::EKind::Literal);
  EXPECT_EQ(literal.users.at(0).passwordSource.line, 3);
  EXPECT_EQ(literal.users.at(0).passwordSource.path, "users[0].password");
  const SRunConfig environment = ParseRunConfig(WithPassword("{\"env\": \"PW\"}"), "c.json");
  EXPECT_EQ(environment.users.at(0).passwordSource.kind, SPasswordSource::EKind::Environment);
  EXPECT_EQ(environment.users.at(0).passwordSource.name, "PW");
  EXPECT_TRUE(environment.users.at(0).password.empty());
  const SRunConfig file = ParseRunConfig(WithPassword("{\"file\": \"pw.txt\"}"), "c.json");
  EXPECT_EQ(file.users.at(0).passwordSource.kind, SPasswordSource::EKind::File);
  EXPECT_EQ(file.users.at(0).passwordSource.name, "pw.txt");
}

TEST(RunConfigTest, MalformedPasswordSourcesAreRefused)
{
  auto refused = [](const std::string& password, const std::string& fragment) {
    try
    {
      ParseRunConfig(WithPassword(password), "bad.json");
      ADD_FAILURE() << password;
    }
    catch (const CConfigError& error)
    {
      EXPECT_EQ(error.Line(), 3) << error.what();
      EXPECT_NE(error.Reason().find(fragment), std::string::npos) << error.what();
    }
  };
  refused("{}", "exactly one of \"env\" and \"file\"");
  refused("{\"env\": \"A\", \"file\": \"B\"}", "exactly one of");
  refused("{\"env\": 1}", "expected a string");
  refused("{\"vault\": \"x\"}", "unknown key \"vault\"");
  refused("42", "expected a string or {\"env\": NAME}");
}

// A syntax error inside a password names the line and column, not the text around it.
TEST(RunConfigTest, SyntaxErrorDoesNotQuoteThePassword)
{
  try
  {
    ParseRunConfig(WithPassword("\"hunter2-secret\n\""), "bad.json");
    ADD_FAILURE();
  }
  catch (const CConfigError& error)
  {
    EXPECT_EQ(std::string(error.what()).find("hunter2"), std::string::npos) << error.what();
  }
}

// Every entry is checked: two bad collections and a bad user are three problems.
TEST(RunConfigTest, EveryProblemIsListed)
{
  const std::string text = "{\"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n"
                           " \"users\": [{\"id\": \"u\", \"name\": \"x\", \"password\": {}}],\n"
                           " \"tasks\": [{\"host\": \"h\", \"collections\": [\n"
                           "   {\"type\": \"MIPROP\"},\n"
                           "   {\"type\": \"MiPerf\", \"counters\": []}]}]}\n";
  std::vector<SConfigProblem> problems;
  ParseRunConfig(text, "bad.json", problems);
  ASSERT_EQ(problems.size(), 3u);
  EXPECT_EQ(problems[0].Text().rfind("bad.json:2: users[0].password: ", 0), 0u) << problems[0].Text();
  EXPECT_EQ(problems[1].Text().rfind("bad.json:4: tasks[0].collections[0].type: ", 0), 0u) << problems[1].Text();
  EXPECT_EQ(problems[2].Text().rfind("bad.json:5: tasks[0].collections[1].counters: ", 0), 0u) << problems[2].Text();
  try
  {
    ParseRunConfig(text, "bad.json");
    ADD_FAILURE();
  }
  catch (const CConfigError& error)
  {
    EXPECT_EQ(error.Problems().size(), 3u);
  }
}

TEST(RunArgumentsTest, ParsesOptionsAndRefusesMistakes)
{
  const auto parsed = ParseRunArguments({"cfg.json", "--duration", "2.5", "--threads", "3"});
  EXPECT_EQ(parsed.configFile, "cfg.json");
  EXPECT_DOUBLE_EQ(*parsed.duration, 2.5);
  EXPECT_EQ(parsed.threads, 3u);
  EXPECT_FALSE(parsed.check);
  EXPECT_TRUE(ParseRunArguments({"cfg.json", "--check"}).check);
  EXPECT_EQ(ParseRunArguments({"--logs", "/tmp/x"}).logDirectory, "/tmp/x");
  EXPECT_FALSE(ParseRunArguments({}).duration.has_value());
  EXPECT_THROW(ParseRunArguments({"--duration"}), std::invalid_argument);
  EXPECT_THROW(ParseRunArguments({"--duration", "-1"}), std::invalid_argument);
  EXPECT_THROW(ParseRunArguments({"--duration", "soon"}), std::invalid_argument);
  EXPECT_THROW(ParseRunArguments({"--threads", "0"}), std::invalid_argument);
  EXPECT_THROW(ParseRunArguments({"--bogus"}), std::invalid_argument);
  EXPECT_THROW(ParseRunArguments({"a.json", "b.json"}), std::invalid_argument);
  EXPECT_THROW(ParseRunArguments({"a.json", "--logs", "/tmp"}), std::invalid_argument);
}
} // namespace

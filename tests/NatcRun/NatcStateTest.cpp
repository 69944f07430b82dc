// `natc run --state FILE`: two runs over the same logs deliver each event once in all (a sample
// log and a log the project's .evtx writer appends to between the runs); a damaged or foreign
// state file is refused with exit code 2 and left as it is.
#include "Evtx/Writer.h"
#include "TestSupport/CommandOutput.h"
#include "TestSupport/Samples.h"
#include "TestSupport/TempDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

namespace
{
const std::string sampleName = "Microsoft-Windows-HelloForBusiness%4Operational.evtx";
constexpr std::size_t sampleEvents = 6;

class NatcState : public testing::Test
{
protected:
  void SetUp() override
  {
    std::filesystem::create_directory(Logs());
    std::filesystem::copy_file(EvtxSamplesDirectory() / sampleName, Logs() / sampleName);
    std::filesystem::permissions(Logs() / sampleName, std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add);
    std::ofstream(Config()) << R"({"hosts":[{"id":"h","name":")" << Logs().string() << R"("}],
      "tasks":[{"name":"logs","host":"h","collections":[{"type":"WindowsEvents","period":1,"filters":[
        {"path":"microsoft-windows-helloforbusiness/operational"},{"path":"Natc-Test"}]}]}]})";
  }

  std::filesystem::path Logs() const { return m_directory / "logs"; }
  std::filesystem::path Config() const { return m_directory / "natc-run.json"; }
  std::filesystem::path State() const { return m_directory / "state.json"; }

  // Appends events whose first data value is their index.
  void Append(evtx::Writer& writer, int first, int count)
  {
    for (int index = first; index < first + count; ++index)
    {
      evtx::WriterEvent event;
      event.provider = "Natc-Test";
      event.channel = "Natc-Test";
      event.eventId = 1000;
      event.level = 4;
      event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(index))});
      ASSERT_NE(writer.Append(event), 0u);
    }
  }

  CommandOutput Run(const std::string& options, bool withStderr = false)
  {
    return RunCommand(std::string(NATC_BINARY) + " run '" + Config().string() + "' " + options, withStderr);
  }

  // Counts each record's fields (the collection's identifier differs from run to run).
  static void CountRecords(const CommandOutput& output, std::map<std::string, int>& seen)
  {
    for (const auto& line : output.lines)
    {
      const auto json = nlohmann::json::parse(line);
      if (json.contains("fields"))
        ++seen[json.at("fields").dump()];
    }
  }

  // Declared first: the path below is taken from it.
  const TempDirectory m_temp{"natc-state"};
  const std::filesystem::path m_directory = m_temp.Path();
};

TEST_F(NatcState, TwoRunsDeliverEachEventOnceInAll)
{
  evtx::Writer writer;
  std::string error;
  ASSERT_TRUE(writer.Create((Logs() / "Natc-Test.evtx").string(), &error)) << error;
  Append(writer, 1, 20);

  std::map<std::string, int> seen;
  const CommandOutput first = Run("--duration 2 --state '" + State().string() + "'");
  ASSERT_EQ(first.status, 0);
  ASSERT_TRUE(std::filesystem::exists(State()));
  CountRecords(first, seen);

  Append(writer, 21, 10);
  const CommandOutput second = Run("--duration 2 --state '" + State().string() + "'");
  ASSERT_EQ(second.status, 0);
  CountRecords(second, seen);

  std::size_t total = 0;
  for (const auto& [fields, times] : seen)
  {
    EXPECT_EQ(times, 1) << fields;
    total += static_cast<std::size_t>(times);
  }
  EXPECT_EQ(total, sampleEvents + 30);
  for (int index = 1; index <= 30; ++index)
  {
    const bool found = std::any_of(seen.begin(), seen.end(), [&](const auto& entry) {
      return entry.first.find("\"Data\":[\"" + std::to_string(index) + "\"]") != std::string::npos;
    });
    EXPECT_TRUE(found) << index;
  }
}

TEST_F(NatcState, ADamagedStateFileIsRefusedAndLeftAsItIs)
{
  for (const std::string text : {"{\"natcState\":1,\"collections\":[", "{\"bookmarks\":[]}"})
  {
    std::ofstream(State()) << text;
    const CommandOutput output = Run("--duration 1 --state '" + State().string() + "'", true);
    EXPECT_EQ(output.status, 2);
    std::string all;
    for (const auto& line : output.lines)
      all += line + "\n";
    EXPECT_NE(all.find("not a natc state file"), std::string::npos) << all;
    EXPECT_EQ(all.find("\"fields\""), std::string::npos) << all;
    std::ifstream file(State());
    std::stringstream kept;
    kept << file.rdbuf();
    EXPECT_EQ(kept.str(), text);
  }
}
} // namespace

namespace
{
// Forwarded events keep their sources' EventRecordIDs: those stored after the first run show
// lower numbers, and the second run still delivers each of them once.
TEST_F(NatcState, ForwardedEventsWithLowerNumbersResumeAfterARestart)
{
  std::ofstream(Config()) << R"({"hosts":[{"id":"h","name":")" << Logs().string() << R"("}],
    "tasks":[{"name":"wec","host":"h","collections":[{"type":"WindowsEvents","period":1,"filters":[
      {"path":"ForwardedEvents"}]}]}]})";
  evtx::Writer writer;
  std::string error;
  ASSERT_TRUE(writer.Create((Logs() / "ForwardedEvents.evtx").string(), &error)) << error;
  const auto forward = [&](int first, int count, std::uint64_t shownFrom, const char* channel) {
    for (int index = first; index < first + count; ++index)
    {
      evtx::WriterEvent event;
      event.provider = "Natc-Test";
      event.channel = channel;
      event.eventId = 1000;
      event.eventRecordId = shownFrom + static_cast<std::uint64_t>(index - first);
      event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(index))});
      ASSERT_NE(writer.Append(event), 0u);
    }
  };
  forward(1, 20, 5000, "Security");

  std::map<std::string, int> seen;
  const CommandOutput first = Run("--duration 2 --state '" + State().string() + "'");
  ASSERT_EQ(first.status, 0);
  CountRecords(first, seen);
  std::ifstream saved(State());
  const std::string state((std::istreambuf_iterator<char>(saved)), std::istreambuf_iterator<char>());
  EXPECT_NE(state.find("bookmarkXml"), std::string::npos) << state;

  forward(21, 10, 10, "System");
  const CommandOutput second = Run("--duration 2 --state '" + State().string() + "'");
  ASSERT_EQ(second.status, 0);
  CountRecords(second, seen);

  EXPECT_EQ(seen.size(), 30u);
  for (const auto& [fields, times] : seen)
    EXPECT_EQ(times, 1) << fields;
}
} // namespace

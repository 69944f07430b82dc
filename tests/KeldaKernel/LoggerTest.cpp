#include "KeldaKernel/Exceptions.h"
#include "KeldaKernel/Logger.h"

#include "TestSupport/LogCapture.h"
#include "ThrowSite.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <cctype>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

TEST(Logger, LevelFiltering)
{
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  auto& logger = CKeldaLogger::instance();
  EXPECT_EQ(logger.level(), ELogLevel::Info);
  logger.writeImpl(ELogLevel::Debug, L"debug line");
  logger.writeImpl(ELogLevel::Info, L"info line");
  logger.writeImpl(ELogLevel::Error, L"error line");
  logger.setLevel(ELogLevel::Error);
  logger.writeImpl(ELogLevel::Info, L"info hidden");
  logger.writeImpl(ELogLevel::Error, L"error shown");
  logger.setLevel(ELogLevel::Off);
  logger.writeImpl(ELogLevel::Error, L"nothing when off");
  logger.setLevel(ELogLevel::Debug);
  logger.writeImpl(ELogLevel::Debug, L"debug shown");

  const auto lines = capture.Sink().Lines();
  ASSERT_EQ(lines.size(), 4u);
  const std::vector<std::pair<ELogLevel, std::wstring>> expected{{ELogLevel::Info, L"info line"},
                                                                 {ELogLevel::Error, L"error line"},
                                                                 {ELogLevel::Error, L"error shown"},
                                                                 {ELogLevel::Debug, L"debug shown"}};
  for (std::size_t i = 0; i < expected.size(); ++i)
  {
    EXPECT_EQ(lines[i].level, expected[i].first) << i;
    EXPECT_EQ(lines[i].text, expected[i].second) << i;
  }
}

TEST(Logger, LevelNumbers)
{
  EXPECT_EQ(static_cast<int>(ELogLevel::Debug), -1);
  EXPECT_EQ(static_cast<int>(ELogLevel::Info), 1);
  EXPECT_EQ(static_cast<int>(ELogLevel::Error), 3);
}

TEST(Logger, LevelNamesFromEnvironmentValue)
{
  EXPECT_EQ(ParseLogLevel("debug"), ELogLevel::Debug);
  EXPECT_EQ(ParseLogLevel("DEBUG"), ELogLevel::Debug);
  EXPECT_EQ(ParseLogLevel("info"), ELogLevel::Info);
  EXPECT_EQ(ParseLogLevel("error"), ELogLevel::Error);
  EXPECT_EQ(ParseLogLevel("off"), ELogLevel::Off);
  EXPECT_EQ(ParseLogLevel("verbose"), ELogLevel::Info);
  EXPECT_EQ(ParseLogLevel(""), ELogLevel::Info);
}

TEST(Logger, ExceptionLineCarriesDescriptionCodeAndLocation)
{
  natc_test::CLoggerCapture capture;
  try
  {
    throwsite::ThrowInvalidArgument();
  }
  catch (const std::exception& error)
  {
    CKeldaLogger::instance().writeExceptionImpl(ELogLevel::Error, error, __func__, __FILE__, __LINE__, true,
                                                L"[NatC] Failed");
  }
  const auto lines = capture.Sink().Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, ELogLevel::Error);
  const std::wstring& line = lines[0].text;
  EXPECT_EQ(line.rfind(L"[NatC] Failed: Host name can not be empty (0x80070057) [thrown in ", 0), 0u) << line;
  EXPECT_NE(line.find(L"ThrowInvalidArgument"), std::wstring::npos);
  EXPECT_NE(line.find(L"ThrowSite.h:" + std::to_wstring(throwsite::g_line) + L"]"), std::wstring::npos) << line;
}

TEST(Logger, ExceptionLineWithoutDetailsOrLocation)
{
  natc_test::CLoggerCapture capture;
  auto& logger = CKeldaLogger::instance();
  logger.writeExceptionImpl(ELogLevel::Error, std::runtime_error("plain"), __func__, __FILE__, __LINE__, true,
                            L"Line");
  logger.writeExceptionImpl(ELogLevel::Error, CWin32Exception(ERROR_INVALID_SID), __func__, __FILE__, __LINE__,
                            false, L"Line");
  // Below the current level nothing is written.
  logger.setLevel(ELogLevel::Off);
  logger.writeExceptionImpl(ELogLevel::Error, std::runtime_error("hidden"), __func__, __FILE__, __LINE__, true, L"x");
  const auto lines = capture.Sink().Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].text, L"Line: plain (0x80004005)");
  EXPECT_EQ(lines[1].text, L"Line: The security ID structure is invalid. (0x80070539)");
}

namespace
{
// `layout` with each 'd' standing for one decimal digit.
bool MatchesLayout(const std::string& text, const std::string& layout)
{
  if (text.size() != layout.size())
    return false;
  for (std::size_t i = 0; i < text.size(); ++i)
  {
    const bool digit = std::isdigit(static_cast<unsigned char>(text[i])) != 0;
    if (layout[i] == 'd' ? !digit : text[i] != layout[i])
      return false;
  }
  return true;
}
} // namespace

TEST(Logger, FileSinkWritesTimeStampLevelAndText)
{
  char pathTemplate[] = "/tmp/kelda_logger_XXXXXX";
  const int fd = mkstemp(pathTemplate);
  ASSERT_GE(fd, 0);
  close(fd);
  const std::string path = pathTemplate;
  {
    natc_test::CLoggerCapture capture(ELogLevel::Info);
    auto& logger = CKeldaLogger::instance();
    logger.useFile(path);
    logger.writeImpl(ELogLevel::Info, L"[NatC] to the file \u00E9");
    logger.writeImpl(ELogLevel::Error, L"[NatC] an error");
    logger.useFile("");
    logger.writeImpl(ELogLevel::Info, L"[NatC] after closing");
  }
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  std::remove(path.c_str());
  const std::string content = text.str();
  EXPECT_TRUE(MatchesLayout(content.substr(0, content.find('\n')), "dddd-dd-ddTdd:dd:dd.dddZ [info] [NatC] to the file \xC3\xA9"))
    << content;
  EXPECT_NE(content.find("[error] [NatC] an error\n"), std::string::npos);
  EXPECT_EQ(content.find("after closing"), std::string::npos);
}

TEST(Logger, UnwritableFileIsAClearError)
{
  // A path below a regular file can not be created, not even by root.
  char pathTemplate[] = "/tmp/kelda_not_a_dir_XXXXXX";
  const int fd = mkstemp(pathTemplate);
  ASSERT_GE(fd, 0);
  close(fd);
  const std::string file = pathTemplate;
  EXPECT_THROW(CKeldaLogger::instance().useFile(file + "/log.txt"), CHResultException);
  std::remove(file.c_str());
}

TEST(Logger, ConcurrentWritersLoseNoLine)
{
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  constexpr int threads = 4;
  constexpr int perThread = 200;
  std::vector<std::thread> writers;
  writers.reserve(threads);
  for (int t = 0; t < threads; ++t)
    writers.emplace_back([t] {
      for (int i = 0; i < perThread; ++i)
        CKeldaLogger::instance().writeImpl(ELogLevel::Info, L"writer " + std::to_wstring(t) + L" line " + std::to_wstring(i));
    });
  for (auto& writer : writers)
    writer.join();
  const auto lines = capture.Sink().Lines();
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(threads * perThread));
  for (const auto& line : lines)
    EXPECT_EQ(line.text.rfind(L"writer ", 0), 0u);
}

TEST(Logger, RemovedSinkReceivesNothing)
{
  auto sink = std::make_shared<natc_test::CCapturingSink>();
  auto& logger = CKeldaLogger::instance();
  logger.addSink(sink);
  logger.writeImpl(ELogLevel::Error, L"seen");
  logger.removeSink(sink);
  logger.writeImpl(ELogLevel::Error, L"unseen");
  ASSERT_EQ(sink->Lines().size(), 1u);
  EXPECT_EQ(sink->Lines()[0].text, L"seen");
}

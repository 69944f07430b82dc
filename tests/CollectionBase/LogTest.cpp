// CLog: prefixes, levels, last-error preservation, interruption points, swallowed failures.
#include "TestSupport.h"

#include "KeldaKernel/Cancellation.h"
#include "Log.h"

#include <gtest/gtest.h>
#include <stdexcept>

using namespace natc_test;

namespace
{
// A sink whose write fails, to check what CLog lets through.
class CThrowingSink : public ILogSink
{
public:
  explicit CThrowingSink(bool standardKind) : m_standardKind(standardKind) {}
  void write(ELogLevel, std::wstring_view) override
  {
    if (m_standardKind)
    {
      throw std::runtime_error("sink broke");
    }
    throw 42;
  }

private:
  bool m_standardKind;
};

struct CSinkScope
{
  explicit CSinkScope(std::shared_ptr<ILogSink> sink) : m_sink(std::move(sink))
  {
    CKeldaLogger::instance().addSink(m_sink);
  }
  ~CSinkScope() { CKeldaLogger::instance().removeSink(m_sink); }
  CSinkScope(const CSinkScope&) = delete;
  CSinkScope& operator=(const CSinkScope&) = delete;
  std::shared_ptr<ILogSink> m_sink;
};

std::shared_ptr<ICancellation> CancelledToken()
{
  auto token = create_cancellation();
  token->cancel();
  return token;
}
} // namespace

TEST(CLog, PrefixWithoutParentIsTheGivenOne)
{
  const CLog log(nullptr, L"[NatC]");
  EXPECT_EQ(log.Prefix(), L"[NatC]");
}

TEST(CLog, ChildLineStartsWithBothPrefixesThenOneSpace)
{
  CLoggerCapture capture(ELogLevel::Debug);
  auto parent = std::make_shared<CLog>(nullptr, L"[NatC]");
  CLog child(parent, L"[MiLoader]");
  child.Info(L"Loading classes");
  const auto lines = capture.Sink().Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, ELogLevel::Info);
  EXPECT_EQ(lines[0].text.find(L"[NatC][MiLoader] Loading classes"), 0u) << kelda::ToUtf8(lines[0].text);
}

TEST(CLog, LevelsFollowTheLoggerLevel)
{
  CLoggerCapture capture(ELogLevel::Info);
  CLog log(nullptr, L"[T]");
  log.Debug(L"hidden debug");
  log.Info(L"shown info");
  log.Error(std::runtime_error("boom"), L"shown error");
  CKeldaLogger::instance().setLevel(ELogLevel::Error);
  log.Info(L"hidden info");
  log.Error(std::runtime_error("boom"), L"second error");
  CKeldaLogger::instance().setLevel(ELogLevel::Debug);
  log.Debug(L"shown debug");

  EXPECT_EQ(capture.Sink().Count(L"hidden"), 0u);
  EXPECT_EQ(capture.Sink().Count(L"[T] shown info"), 1u);
  EXPECT_EQ(capture.Sink().Count(L"[T] shown error"), 1u);
  EXPECT_EQ(capture.Sink().Count(L"[T] second error"), 1u);
  EXPECT_EQ(capture.Sink().Count(L"[T] shown debug"), 1u);
  for (const auto& line : capture.Sink().Lines())
  {
    if (line.text.find(L"error") != std::wstring::npos)
    {
      EXPECT_EQ(line.level, ELogLevel::Error);
    }
  }
}

TEST(CLog, ErrorLineCarriesTheExceptionText)
{
  CLoggerCapture capture(ELogLevel::Debug);
  CLog log(nullptr, L"[T]");
  log.Error(CKeldaException(L"Host is unset"), L"Failed to connect");
  const auto lines = capture.Sink().Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, ELogLevel::Error);
  EXPECT_EQ(lines[0].text.find(L"[T] Failed to connect"), 0u) << kelda::ToUtf8(lines[0].text);
  EXPECT_NE(lines[0].text.find(L"Host is unset"), std::wstring::npos) << kelda::ToUtf8(lines[0].text);
}

TEST(CLog, WrittenLinesKeepTheLastErrorCode)
{
  CLoggerCapture capture(ELogLevel::Debug);
  CLog log(nullptr, L"[T]");
  // The capturing sink overwrites the last error on every line it receives.
  SetLastError(ERROR_ACCESS_DENIED);
  log.Debug(L"d");
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  log.Info(L"i");
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  log.Error(std::runtime_error("e"), L"e");
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_EQ(capture.Sink().Lines().size(), 3u);
}

TEST(CLog, SkippedDebugKeepsLastErrorAndStillHonoursInterruption)
{
  CLoggerCapture capture(ELogLevel::Info);
  CLog log(nullptr, L"[T]");
  SetLastError(ERROR_NOT_SUPPORTED);
  {
    const interruption_scope scope(CancelledToken());
    EXPECT_THROW(log.Debug(L"not written"), CInterruptedException);
  }
  EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(capture.Sink().Lines().empty());
}

TEST(CLog, WrittenInfoIsAlsoAnInterruptionPoint)
{
  CLoggerCapture capture(ELogLevel::Debug);
  CLog log(nullptr, L"[T]");
  const interruption_scope scope(CancelledToken());
  EXPECT_THROW(log.Info(L"written, then interrupted"), CInterruptedException);
  EXPECT_EQ(capture.Sink().Count(L"written, then interrupted"), 1u);
}

TEST(CLog, NoInterruptionWithoutCancelledToken)
{
  CLoggerCapture capture(ELogLevel::Debug);
  CLog log(nullptr, L"[T]");
  const interruption_scope scope(create_cancellation());
  EXPECT_NO_THROW(log.Info(L"fine"));
  EXPECT_EQ(capture.Sink().Count(L"fine"), 1u);
}

TEST(CLog, ErrorNeverThrowsEvenWhenInterrupted)
{
  CLoggerCapture capture(ELogLevel::Debug);
  CLog log(nullptr, L"[T]");
  const interruption_scope scope(CancelledToken());
  EXPECT_NO_THROW(log.Error(std::runtime_error("x"), L"while cancelled"));
  EXPECT_EQ(capture.Sink().Count(L"while cancelled"), 1u);
  // The interruption stays pending for the next interruption point.
  EXPECT_THROW(interruption_point(), CInterruptedException);
}

TEST(CLog, StandardFailuresInsideTheCallAreSwallowed)
{
  CLoggerCapture capture(ELogLevel::Debug);
  const CSinkScope failing(std::make_shared<CThrowingSink>(true));
  CLog log(nullptr, L"[T]");
  SetLastError(ERROR_TIMEOUT);
  EXPECT_NO_THROW(log.Info(L"a"));
  EXPECT_NO_THROW(log.Debug(L"b"));
  EXPECT_NO_THROW(log.Error(std::runtime_error("c"), L"c"));
  EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
}

TEST(CLog, OtherFailuresLeaveInfoButNotError)
{
  CLoggerCapture capture(ELogLevel::Debug);
  const CSinkScope failing(std::make_shared<CThrowingSink>(false));
  CLog log(nullptr, L"[T]");
  EXPECT_THROW(log.Info(L"a"), int);
  EXPECT_NO_THROW(log.Error(std::runtime_error("c"), L"c"));
}

TEST(CLog, CollectionWithoutHostSaysNull)
{
  CLoggerCapture capture(ELogLevel::Debug);
  auto root = std::make_shared<CLog>(nullptr, L"[NatC]");
  pool threadPool(1);
  auto collection = std::make_shared<CScriptedCollection>(root, threadPool, create_cancellation(), nullptr, nullptr,
                                                          std::make_shared<CFixedClass>(L"WindowsEvents"));
  EXPECT_EQ(collection->Log()->Prefix(), L"[NatC][C:null:WindowsEvents]");
  collection->Stop(false);
  EXPECT_EQ(capture.Sink().Count(L"[NatC][C:null:WindowsEvents] Stop requested"), 1u);
}

TEST(CLog, CollectionPrefixNamesHostAndClass)
{
  auto root = std::make_shared<CLog>(nullptr, L"[NatC]");
  pool threadPool(1);
  auto collection = std::make_shared<CScriptedCollection>(root, threadPool, create_cancellation(),
                                                          std::make_shared<CFixedHost>(L"server01"), nullptr, nullptr);
  EXPECT_EQ(collection->Log()->Prefix(), L"[NatC][C:server01:]");
}

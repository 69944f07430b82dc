// Printers of different collections write to one stream from different pool threads: every
// line comes out whole, never spliced with another printer's line.
#include "output/JsonLines.h"
#include "TestSupport/StartLatch.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace
{
using collector::ni::ICollectionTypes;

class FixedState : public ICollectionTypes::IState
{
public:
  explicit FixedState(tstring description) : m_description(std::move(description)) {}
  ICollectionTypes::States GetState() const override { return ICollectionTypes::Running; }
  tstring GetDescription() const override { return m_description; }

private:
  tstring m_description;
};

// A temporary stream, closed at the end.
struct CTempStream
{
  std::FILE* file = std::tmpfile();
  CTempStream() = default;
  ~CTempStream()
  {
    if (file != nullptr)
    {
      std::fclose(file);
    }
  }
  CTempStream(const CTempStream&) = delete;
  CTempStream& operator=(const CTempStream&) = delete;
};
} // namespace

TEST(JsonLinePrinterThreading, PrintersSharingAStreamNeverSpliceLines)
{
  constexpr int linesEach = 5000;
  CTempStream stream;
  ASSERT_NE(stream.file, nullptr);
  const std::vector<GUID> collections{{0x11111111, 0x1111, 0x1111, {1, 1, 1, 1, 1, 1, 1, 1}},
                                      {0x22222222, 0x2222, 0x2222, {2, 2, 2, 2, 2, 2, 2, 2}}};
  const std::vector<tstring> classes{L"WindowsEvents", L"MiProp"};
  std::set<std::string> expected;
  std::vector<std::unique_ptr<FixedState>> states;
  for (std::size_t index = 0; index < collections.size(); ++index)
  {
    states.push_back(std::make_unique<FixedState>(tstring(200, static_cast<wchar_t>(L'a' + index))));
    expected.insert(natc::FormatStateLine(collections[index], classes[index], *states[index]));
  }

  StartLatch ready(static_cast<std::ptrdiff_t>(collections.size()));
  std::vector<std::thread> threads;
  for (std::size_t index = 0; index < collections.size(); ++index)
  {
    threads.emplace_back([&, index] {
      auto printer = std::make_shared<natc::JsonLinePrinter>(classes[index], stream.file);
      ready.ArriveAndWait();
      for (int line = 0; line < linesEach; ++line)
      {
        printer->OnStateChanged(collections[index], *states[index]);
      }
    });
  }
  for (auto& thread : threads)
  {
    thread.join();
  }

  std::rewind(stream.file);
  std::string text;
  char buffer[4096];
  for (std::size_t read; (read = std::fread(buffer, 1, sizeof buffer, stream.file)) > 0;)
  {
    text.append(buffer, read);
  }
  std::size_t lines = 0;
  std::size_t spliced = 0;
  for (std::size_t begin = 0, end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
  {
    ++lines;
    if (expected.count(text.substr(begin, end - begin)) == 0)
    {
      ++spliced;
    }
  }
  EXPECT_EQ(spliced, 0u);
  EXPECT_EQ(lines, collections.size() * linesEach);
}

// Cost of the JSON lines natc prints: a "WindowsEvents" record line appended to a block (its
// eight fields as an event gives them, one text of XML with quotes among its data), and the
// quoting of short and long wide texts. Figures: time per line or text, and output bytes/s.
#include "output/JsonLines.h"
#include "output/JsonString.h"

#include "Collector.Interfaces.Impl.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
using collector::ni::FieldValue;
using collector::ni::impl::CField;
using collector::ni::impl::CKey;
using collector::ni::impl::CRecordOnVector;

std::shared_ptr<CRecordOnVector> EventRecord(__int64 id)
{
  // Shared by every record, as a collection's field names are.
  static const auto names = [] {
    std::vector<std::shared_ptr<tstring>> made;
    for (const wchar_t* name : {L"SourceName", L"Description", L"CreatedTime", L"InitiatedBy", L"EventType", L"Data",
                                L"EventCode", L"InternalId"})
      made.push_back(std::make_shared<tstring>(name));
    return made;
  }();
  auto key = std::make_shared<CField>(names[7], FieldValue(id));
  auto record = std::make_shared<CRecordOnVector>(CKey(nullptr, {key}), 1, 8);
  record->AddField(names[0], FieldValue(tstring(L"Microsoft-Windows-Security-Auditing")));
  record->AddField(names[1], FieldValue(tstring()));
  record->AddField(names[2], FieldValue(COleDateTimeEx(SYSTEMTIME{2019, 3, 6, 9, 7, 23, 5, 468})));
  record->AddField(names[3], FieldValue(tstring(L"S-1-5-21-1708874808-2135018884-2645922275-500")));
  record->AddField(names[4], FieldValue(static_cast<__int64>(4)));
  record->AddField(names[5], FieldValue(std::vector<tstring>{
                               L"S-1-5-18", L"WIN-7PBDOSN5UQ1$", L"WORKGROUP", L"0x3e7", L"0", L"false",
                               LR"(<Action wsu:Id="Action" S:mustUnderstand="1">*</Action><To wsu:Id="To">*</To>)"}));
  record->AddField(names[6], FieldValue(static_cast<__int64>(4624)));
  record->AddField(names[7], FieldValue(id));
  return record;
}

void BM_AppendEventRecordLine(benchmark::State& state)
{
  std::vector<std::shared_ptr<CRecordOnVector>> records;
  for (__int64 id = 1; id <= 64; ++id)
    records.push_back(EventRecord(id));
  natc::CJsonLineWriter writer;
  rapidjson::StringBuffer block;
  const std::string collection = "{23A2E325-BACE-41A7-9B7E-F30892D03B04}";
  std::size_t bytes = 0;
  std::size_t next = 0;
  for (auto _ : state)
  {
    writer.AppendRecordLine(block, collection, "WindowsEvents", *records[next]);
    next = (next + 1) % records.size();
    // A block goes out at 1 MiB in natc; here it is only emptied.
    if (block.GetSize() >= (1u << 20))
    {
      bytes += block.GetSize();
      block.Clear();
    }
  }
  bytes += block.GetSize();
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_AppendEventRecordLine);

void BM_QuoteJsonString(benchmark::State& state)
{
  // Plain ASCII with a quote every 40 characters, as the XML texts of events have.
  std::wstring text;
  for (std::int64_t k = 0; k < state.range(0); ++k)
    text += k % 40 == 39 ? L'"' : static_cast<wchar_t>(L'a' + k % 26);
  std::vector<char> buffer(natc::QuotedJsonSize(text.size()));
  std::size_t bytes = 0;
  for (auto _ : state)
  {
    bytes += natc::QuoteJsonString(text, buffer.data());
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_QuoteJsonString)->Arg(0)->Arg(5)->Arg(24)->Arg(45)->Arg(1000);
} // namespace

BENCHMARK_MAIN();

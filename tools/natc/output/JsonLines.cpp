#include "output/JsonLines.h"

#include "Collector.Interfaces.Impl.h"
#include "KeldaKernel/Strings.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace natc
{
namespace
{
using collector::ni::FieldValue;
using collector::ni::ICollectionTypes;
// Keys keep insertion order: fields print in record order.
using json = nlohmann::ordered_json;

json ToJson(const FieldValue& value);

json FieldsToJson(const std::vector<collector::ni::impl::CField>& fields)
{
  json object = json::object();
  for (const auto& field : fields)
    object[kelda::ToUtf8(field.GetName())] = ToJson(field.GetValue());
  return object;
}

// Records built on a vector are printed in the order their fields were added; other records
// have no way to list their fields, so they print as an empty object.
json RecordFields(collector::ni::IRecord& record)
{
  if (const auto* onVector = dynamic_cast<const collector::ni::impl::CRecordOnVectorNoKey*>(&record))
    return FieldsToJson(onVector->GetFields());
  return json::object();
}

json ToJson(const FieldValue& value)
{
  switch (value.index())
  {
  case 0:
    return kelda::ToUtf8(std::get<0>(value));
  case 1:
    return std::get<1>(value);
  case 2:
    return std::get<2>(value);
  case 3: {
    const std::string text = FormatDateTime(std::get<3>(value));
    return text.empty() ? json(nullptr) : json(text);
  }
  case 4: {
    json list = json::array();
    for (const auto& item : std::get<4>(value))
      list.push_back(kelda::ToUtf8(item));
    return list;
  }
  case 5:
    return FormatGuid(std::get<5>(value));
  default: {
    const auto& object = std::get<6>(value);
    if (auto* record = dynamic_cast<collector::ni::IRecord*>(object.get()))
      return RecordFields(*record);
    return nullptr;
  }
  }
}

json Header(const GUID& collectionId, std::wstring_view className)
{
  json line = json::object();
  line["collection"] = FormatGuid(collectionId);
  line["class"] = kelda::ToUtf8(className);
  return line;
}
} // namespace

std::string FormatGuid(const GUID& id)
{
  wchar_t text[39];
  StringFromGUID2(id, text, 39);
  return kelda::ToUtf8(text);
}

std::string FormatDateTime(const COleDateTimeEx& time)
{
  SYSTEMTIME parts{};
  if (time.GetStatus() != COleDateTimeEx::valid || !time.GetAsSystemTime(parts))
    return {};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.wYear, parts.wMonth, parts.wDay, parts.wHour,
                     parts.wMinute, parts.wSecond, parts.wMilliseconds);
}

std::string FormatRecordLine(const GUID& collectionId, std::wstring_view className, collector::ni::IRecord& record)
{
  json line = Header(collectionId, className);
  if (const auto* composition = dynamic_cast<const collector::ni::ICompositionRecord*>(&record))
    line["type"] = composition->GetType();
  if (collector::ni::IKey* key = record.GetKey())
  {
    json keyFields = json::object();
    for (const auto& field : key->GetFields())
      keyFields[kelda::ToUtf8(field->GetName())] = ToJson(field->GetValue());
    line["key"] = std::move(keyFields);
  }
  line["fields"] = RecordFields(record);
  return line.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::wstring_view StateName(ICollectionTypes::States state) noexcept
{
  switch (state)
  {
  case ICollectionTypes::Error:
    return L"Error";
  case ICollectionTypes::Starting:
    return L"Starting";
  case ICollectionTypes::Running:
    return L"Running";
  case ICollectionTypes::Stopping:
    return L"Stopping";
  case ICollectionTypes::Stopped:
    return L"Stopped";
  }
  return L"Unknown";
}

std::string FormatStateLine(const GUID& collectionId, std::wstring_view className, const ICollectionTypes::IState& state)
{
  json line = Header(collectionId, className);
  line["state"] = kelda::ToUtf8(StateName(state.GetState()));
  line["description"] = kelda::ToUtf8(state.GetDescription());
  return line.dump(-1, ' ', false, json::error_handler_t::replace);
}

JsonLinePrinter::JsonLinePrinter(std::wstring className, std::FILE* out)
    : m_className(std::move(className)), m_out(out)
{
}

void JsonLinePrinter::OnRecords(const GUID& collectionId, ICollectionTypes::Records records)
{
  for (const auto& record : records)
  {
    if (!record)
      continue;
    write(FormatRecordLine(collectionId, m_className, *record));
    std::lock_guard lock(m_lock);
    ++m_records;
  }
}

void JsonLinePrinter::OnStateChanged(const GUID& collectionId, const ICollectionTypes::IState& state)
{
  write(FormatStateLine(collectionId, m_className, state));
}

std::size_t JsonLinePrinter::RecordCount() const
{
  std::lock_guard lock(m_lock);
  return m_records;
}

void JsonLinePrinter::write(const std::string& line)
{
  // Several printers (one a collection) share one stream: the stream's own lock, not this
  // printer's, keeps a line and its newline together.
  struct CStreamLock
  {
    std::FILE* file;
    explicit CStreamLock(std::FILE* stream) : file(stream) { flockfile(file); }
    ~CStreamLock() { funlockfile(file); }
    CStreamLock(const CStreamLock&) = delete;
    CStreamLock& operator=(const CStreamLock&) = delete;
  } const lock(m_out);
  std::fwrite(line.data(), 1, line.size(), m_out);
  std::fputc('\n', m_out);
  std::fflush(m_out);
}
} // namespace natc

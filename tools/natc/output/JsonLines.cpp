#include "output/JsonLines.h"

#include "Collector.Interfaces.Impl.h"
#include "KeldaKernel/Strings.h"
#include "output/JsonString.h"

#include <rapidjson/writer.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace natc
{
namespace
{
using collector::ni::FieldValue;
using collector::ni::ICollectionTypes;
using Writer = CJsonLineWriter::Writer;

void WriteValue(Writer& writer, CJsonLineWriter& text, const FieldValue& value);

void WriteFields(Writer& writer, CJsonLineWriter& text, const std::vector<collector::ni::impl::CField>& fields)
{
  writer.StartObject();
  for (const auto& field : fields)
  {
    text.Key(field.GetName());
    WriteValue(writer, text, field.GetValue());
  }
  writer.EndObject();
}

// Records built on a vector are printed in the order their fields were added; other records
// have no way to list their fields, so they print as an empty object.
void WriteRecordFields(Writer& writer, CJsonLineWriter& text, collector::ni::IRecord& record)
{
  if (const auto* onVector = dynamic_cast<const collector::ni::impl::CRecordOnVectorNoKey*>(&record))
  {
    WriteFields(writer, text, onVector->GetFields());
    return;
  }
  writer.StartObject();
  writer.EndObject();
}

void WriteValue(Writer& writer, CJsonLineWriter& text, const FieldValue& value)
{
  switch (value.index())
  {
  case 0:
    text.String(std::get<0>(value));
    return;
  case 1:
    writer.Int64(std::get<1>(value));
    return;
  case 2:
    // JSON has no NaN or infinity.
    if (std::isfinite(std::get<2>(value)))
      writer.Double(std::get<2>(value));
    else
      writer.Null();
    return;
  case 3: {
    char formatted[dateTimeSize];
    const std::size_t size = FormatDateTime(std::get<3>(value), formatted);
    if (size == 0)
      writer.Null();
    else
      writer.String(formatted, static_cast<rapidjson::SizeType>(size));
    return;
  }
  case 4:
    writer.StartArray();
    for (const auto& item : std::get<4>(value))
      text.String(item);
    writer.EndArray();
    return;
  case 5: {
    const std::string guid = FormatGuid(std::get<5>(value));
    writer.String(guid.data(), static_cast<rapidjson::SizeType>(guid.size()));
    return;
  }
  default: {
    const auto& object = std::get<6>(value);
    if (auto* record = dynamic_cast<collector::ni::IRecord*>(object.get()))
      WriteRecordFields(writer, text, *record);
    else
      writer.Null();
    return;
  }
  }
}

// A UTF-8 text as the Writer quotes it.
std::string QuoteUtf8(std::string_view text)
{
  rapidjson::StringBuffer quoted;
  Writer writer(quoted);
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  return std::string(quoted.GetString(), quoted.GetSize());
}

std::string Take(rapidjson::StringBuffer& buffer)
{
  return std::string(buffer.GetString(), buffer.GetSize());
}
} // namespace

std::string FormatGuid(const GUID& id)
{
  wchar_t text[39];
  StringFromGUID2(id, text, 39);
  return kelda::ToUtf8(text);
}

std::size_t FormatDateTime(const COleDateTimeEx& time, char (&text)[dateTimeSize])
{
  SYSTEMTIME parts{};
  if (time.GetStatus() != COleDateTimeEx::valid || !time.GetAsSystemTime(parts))
    return 0;
  // Fixed-width digits, written directly: this runs once per record.
  char* out = text;
  const auto digits = [&out](unsigned value, int width) {
    for (int k = width - 1; k >= 0; --k, value /= 10)
      out[k] = static_cast<char>('0' + value % 10);
    out += width;
  };
  digits(parts.wYear, 4);
  *out++ = '-';
  digits(parts.wMonth, 2);
  *out++ = '-';
  digits(parts.wDay, 2);
  *out++ = 'T';
  digits(parts.wHour, 2);
  *out++ = ':';
  digits(parts.wMinute, 2);
  *out++ = ':';
  digits(parts.wSecond, 2);
  *out++ = '.';
  digits(parts.wMilliseconds, 3);
  *out++ = 'Z';
  return static_cast<std::size_t>(out - text);
}

std::string FormatDateTime(const COleDateTimeEx& time)
{
  char text[dateTimeSize];
  return std::string(text, FormatDateTime(time, text));
}

void CJsonLineWriter::String(std::wstring_view text)
{
  // An empty raw value has the writer put the separator a key or a value needs at this place;
  // the quoted text then goes straight into the output, in one pass.
  m_writer.RawValue("", 0, rapidjson::kStringType);
  const std::size_t worst = QuotedJsonSize(text.size());
  char* const at = m_out->Push(worst);
  m_out->Pop(worst - QuoteJsonString(text, at));
}

void CJsonLineWriter::Quoted(std::string_view quoted)
{
  // An empty raw value puts the separator this place needs; the text follows it.
  m_writer.RawValue("", 0, rapidjson::kStringType);
  std::memcpy(m_out->Push(quoted.size()), quoted.data(), quoted.size());
}

void CJsonLineWriter::Key(std::wstring_view text)
{
  // Records of one collection repeat the same few names: quote each once.
  if (m_nextKey < m_keys.size() && m_keys[m_nextKey].first == text)
  {
    Quoted(m_keys[m_nextKey++].second);
    return;
  }
  for (std::size_t k = 0; k < m_keys.size(); ++k)
  {
    if (m_keys[k].first == text)
    {
      Quoted(m_keys[k].second);
      m_nextKey = k + 1;
      return;
    }
  }
  String(text);
  if (m_keys.size() < maxKeys)
  {
    std::vector<char> quoted;
    m_keys.emplace_back(tstring(text), std::string(quoted.data(), QuoteJsonString(text, quoted)));
    m_nextKey = m_keys.size();
  }
}

void CJsonLineWriter::Header(std::string_view collection, std::string_view className)
{
  if (m_quotedCollection.empty() || collection != m_collection)
  {
    m_collection = collection;
    m_quotedCollection = QuoteUtf8(collection);
  }
  if (m_quotedClassName.empty() || className != m_className)
  {
    m_className = className;
    m_quotedClassName = QuoteUtf8(className);
  }
  m_writer.StartObject();
  Quoted(R"("collection")");
  Quoted(m_quotedCollection);
  Quoted(R"("class")");
  Quoted(m_quotedClassName);
}

void CJsonLineWriter::AppendRecordLine(rapidjson::StringBuffer& out, std::string_view collection,
                                       std::string_view className, collector::ni::IRecord& record)
{
  m_writer.Reset(out);
  m_out = &out;
  Writer& writer = m_writer;
  CJsonLineWriter& text = *this;
  m_nextKey = 0;
  Header(collection, className);
  // One cast for the usual record, which is also a composition record.
  const auto* onVector = dynamic_cast<const collector::ni::impl::CRecordOnVectorNoKey*>(&record);
  const auto* composition =
    onVector != nullptr ? onVector : dynamic_cast<const collector::ni::ICompositionRecord*>(&record);
  if (composition != nullptr)
  {
    writer.Key("type");
    writer.Uint(composition->GetType());
  }
  if (collector::ni::IKey* key = record.GetKey())
  {
    writer.Key("key");
    writer.StartObject();
    for (const auto& field : key->GetFields())
    {
      text.Key(field->GetName());
      WriteValue(writer, text, field->GetValue());
    }
    writer.EndObject();
  }
  writer.Key("fields");
  if (onVector != nullptr)
    WriteFields(writer, text, onVector->GetFields());
  else
    WriteRecordFields(writer, text, record);
  writer.EndObject();
  out.Put('\n');
}

void CJsonLineWriter::AppendStateLine(rapidjson::StringBuffer& out, std::string_view collection,
                                      std::string_view className, const ICollectionTypes::IState& state)
{
  m_writer.Reset(out);
  m_out = &out;
  Writer& writer = m_writer;
  CJsonLineWriter& text = *this;
  Header(collection, className);
  writer.Key("state");
  text.String(StateName(state.GetState()));
  writer.Key("description");
  text.String(state.GetDescription());
  writer.EndObject();
  out.Put('\n');
}

std::string FormatRecordLine(const GUID& collectionId, std::wstring_view className, collector::ni::IRecord& record)
{
  rapidjson::StringBuffer line;
  CJsonLineWriter().AppendRecordLine(line, FormatGuid(collectionId), kelda::ToUtf8(className), record);
  line.Pop(1);
  return Take(line);
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
  rapidjson::StringBuffer line;
  CJsonLineWriter().AppendStateLine(line, FormatGuid(collectionId), kelda::ToUtf8(className), state);
  line.Pop(1);
  return Take(line);
}

JsonLinePrinter::JsonLinePrinter(const std::wstring& className, std::FILE* out)
  : m_className(kelda::ToUtf8(className)), m_out(CBlockOutput::For(out))
{
}

const std::string& JsonLinePrinter::collectionText(const GUID& collectionId)
{
  if (m_collectionText.empty() || !IsEqualGUID(collectionId, m_collectionId))
  {
    m_collectionId = collectionId;
    m_collectionText = FormatGuid(collectionId);
  }
  return m_collectionText;
}

void JsonLinePrinter::OnRecords(const GUID& collectionId, ICollectionTypes::Records records)
{
  std::size_t printed = 0;
  m_out->Append([&](rapidjson::StringBuffer& block) {
    const std::string& collection = collectionText(collectionId);
    for (const auto& record : records)
    {
      if (!record)
        continue;
      m_writer.AppendRecordLine(block, collection, m_className, *record);
      ++printed;
    }
  });
  m_records.fetch_add(printed, std::memory_order_relaxed);
}

void JsonLinePrinter::OnStateChanged(const GUID& collectionId, const ICollectionTypes::IState& state)
{
  m_out->Append([&](rapidjson::StringBuffer& block) {
    m_writer.AppendStateLine(block, collectionText(collectionId), m_className, state);
  });
  // A state's line is out before the next subscriber hears of the state.
  m_out->Flush();
}

std::size_t JsonLinePrinter::RecordCount() const
{
  return m_records.load(std::memory_order_relaxed);
}

void JsonLinePrinter::Flush()
{
  m_out->Flush();
}
} // namespace natc

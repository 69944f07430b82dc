#include "output/JsonLines.h"

#include "Collector.Interfaces.Impl.h"
#include "KeldaKernel/Strings.h"
#include "output/JsonString.h"

#include <rapidjson/internal/dtoa.h>
#include <rapidjson/internal/itoa.h>
#include <rapidjson/writer.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace natc
{
namespace
{
using collector::ni::FieldValue;
using collector::ni::ICollectionTypes;

// A UTF-8 text as RapidJSON's Writer quotes it.
std::string QuoteUtf8(std::string_view text)
{
  rapidjson::StringBuffer quoted;
  rapidjson::Writer<rapidjson::StringBuffer> writer(quoted);
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  return std::string(quoted.GetString(), quoted.GetSize());
}

std::string Take(rapidjson::StringBuffer& buffer)
{
  return std::string(buffer.GetString(), buffer.GetSize());
}

// The two digits of every number below 100, for fixed-width fields.
constexpr char twoDigits[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                             "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                             "8081828384858687888990919293949596979899";

char* PutTwoDigits(char* out, unsigned value) noexcept
{
  std::memcpy(out, twoDigits + static_cast<std::size_t>(value % 100) * 2, 2);
  return out + 2;
}

char* PutDateTime(const SYSTEMTIME& parts, char* out) noexcept
{
  out = PutTwoDigits(out, parts.wYear / 100u % 100u);
  out = PutTwoDigits(out, parts.wYear);
  *out++ = '-';
  out = PutTwoDigits(out, parts.wMonth);
  *out++ = '-';
  out = PutTwoDigits(out, parts.wDay);
  *out++ = 'T';
  out = PutTwoDigits(out, parts.wHour);
  *out++ = ':';
  out = PutTwoDigits(out, parts.wMinute);
  *out++ = ':';
  out = PutTwoDigits(out, parts.wSecond);
  *out++ = '.';
  *out++ = static_cast<char>('0' + parts.wMilliseconds / 100u % 10u);
  out = PutTwoDigits(out, parts.wMilliseconds);
  *out++ = 'Z';
  return out;
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
  return static_cast<std::size_t>(PutDateTime(parts, text) - text);
}

std::string FormatDateTime(const COleDateTimeEx& time)
{
  char text[dateTimeSize];
  return std::string(text, FormatDateTime(time, text));
}

inline void CJsonLineWriter::Raw(std::string_view text)
{
  std::memcpy(m_out->Push(text.size()), text.data(), text.size());
}

inline void CJsonLineWriter::Text(std::wstring_view text)
{
  const std::size_t worst = QuotedJsonSize(text.size());
  char* const at = m_out->Push(worst);
  m_out->Pop(worst - QuoteJsonString(text, at));
}

const CJsonLineWriter::SKey& CJsonLineWriter::findKey(const tstring& name, const std::shared_ptr<tstring>* owner)
{
  // The key at k, which becomes the name object's own, with the next one as the next guess.
  const auto take = [&](std::size_t k) -> const SKey& {
    if (owner != nullptr && m_keys[k].owner != *owner)
      m_keys[k].owner = *owner;
    m_nextKey = k + 1;
    return m_keys[k];
  };
  for (std::size_t k = 0; k < m_keys.size(); ++k)
  {
    if (m_keys[k].HeldBy(name))
      return take(k);
  }
  if (m_nextKey < m_keys.size() && m_keys[m_nextKey].text == name)
    return take(m_nextKey);
  for (std::size_t k = 0; k < m_keys.size(); ++k)
  {
    if (m_keys[k].text == name)
      return take(k);
  }
  std::vector<char> quoted;
  SKey key{owner != nullptr ? *owner : nullptr, name, ",", 0};
  key.encoded.append(quoted.data(), QuoteJsonString(name, quoted));
  key.encoded += ':';
  key.length = key.encoded.size();
  key.encoded.append(keyPadding, '\0');
  if (m_keys.size() >= maxKeys)
  {
    m_spareKey = std::move(key);
    return m_spareKey;
  }
  m_keys.push_back(std::move(key));
  m_nextKey = m_keys.size();
  return m_keys.back();
}

inline const CJsonLineWriter::SKey& CJsonLineWriter::lookUpKey(const tstring& name,
                                                               const std::shared_ptr<tstring>* owner)
{
  if (m_nextKey < m_keys.size() && m_keys[m_nextKey].HeldBy(name))
    return m_keys[m_nextKey++];
  return findKey(name, owner);
}

inline void CJsonLineWriter::Key(const SKey& key, bool first)
{
  const char* const from = key.encoded.data() + (first ? 1 : 0);
  const std::size_t length = key.length - (first ? 1 : 0);
  // Most keys fit in one padded block, copied without a call.
  if (length > keyPadding)
  {
    Raw(std::string_view(from, length));
    return;
  }
  char* const at = m_out->Push(keyPadding);
  std::memcpy(at, from, keyPadding);
  m_out->Pop(keyPadding - length);
}

void CJsonLineWriter::Fields(const std::vector<collector::ni::impl::CField>& fields)
{
  m_out->Put('{');
  bool first = true;
  for (const auto& field : fields)
  {
    Key(lookUpKey(field.GetName(), &field.GetSharedName()), first);
    first = false;
    Value(field.GetValue());
  }
  m_out->Put('}');
}

void CJsonLineWriter::Value(const FieldValue& value)
{
  switch (value.index())
  {
  case 0:
    Text(std::get<0>(value));
    return;
  case 1:
    Number<21>([&](char* at) { return rapidjson::internal::i64toa(std::get<1>(value), at); });
    return;
  case 2: {
    // JSON has no NaN or infinity.
    if (!std::isfinite(std::get<2>(value)))
    {
      Literal("null");
      return;
    }
    Number<25>([&](char* at) { return rapidjson::internal::dtoa(std::get<2>(value), at, maxDecimalPlaces); });
    return;
  }
  case 3: {
    const COleDateTimeEx& time = std::get<3>(value);
    if (time.GetStatus() != COleDateTimeEx::valid)
    {
      Literal("null");
      return;
    }
    // Events often share their time with the one before: the same value gives the same text.
    const auto bits = std::bit_cast<std::uint64_t>(time.GetDate());
    if (!m_timeKnown || bits != m_timeBits)
    {
      SYSTEMTIME parts{};
      m_timeKnown = true;
      m_timeBits = bits;
      m_timeValid = time.GetAsSystemTime(parts);
      if (m_timeValid)
      {
        m_timeText[0] = '"';
        *PutDateTime(parts, m_timeText + 1) = '"';
      }
    }
    if (m_timeValid)
      std::memcpy(m_out->Push(sizeof m_timeText), m_timeText, sizeof m_timeText);
    else
      Literal("null");
    return;
  }
  case 4: {
    m_out->Put('[');
    bool first = true;
    for (const auto& item : std::get<4>(value))
    {
      if (!first)
        m_out->Put(',');
      first = false;
      Text(item);
    }
    m_out->Put(']');
    return;
  }
  case 5: {
    // A GUID's text needs no escaping.
    m_out->Put('"');
    Raw(FormatGuid(std::get<5>(value)));
    m_out->Put('"');
    return;
  }
  default: {
    const auto& object = std::get<6>(value);
    if (auto* record = dynamic_cast<collector::ni::IRecord*>(object.get()))
      RecordFields(dynamic_cast<const collector::ni::impl::CRecordOnVectorNoKey*>(record));
    else
      Literal("null");
    return;
  }
  }
}

// Records built on a vector are printed in the order their fields were added; other records
// have no way to list their fields, so they print as an empty object.
void CJsonLineWriter::RecordFields(const collector::ni::impl::CRecordOnVectorNoKey* onVector)
{
  if (onVector != nullptr)
    Fields(onVector->GetFields());
  else
    Literal("{}");
}

CJsonLineWriter::SRecordKind CJsonLineWriter::kindOf(collector::ni::IRecord& record)
{
  const auto* const whole = static_cast<const char*>(dynamic_cast<const void*>(&record));
  const auto* const at = reinterpret_cast<const char*>(&record);
  const std::type_info& type = typeid(record);
  // The same type with its IRecord at the same place: the casts come out at the same places.
  if (m_recordType == nullptr || *m_recordType != type || at - whole != m_recordAt)
  {
    const auto* onVector = dynamic_cast<const collector::ni::impl::CRecordOnVectorNoKey*>(&record);
    const collector::ni::ICompositionRecord* composition =
      onVector != nullptr ? onVector : dynamic_cast<const collector::ni::ICompositionRecord*>(&record);
    m_recordType = &type;
    m_recordAt = at - whole;
    m_isOnVector = onVector != nullptr;
    m_onVectorAt = m_isOnVector ? reinterpret_cast<const char*>(onVector) - at : 0;
    m_isComposition = composition != nullptr;
    m_compositionAt = m_isComposition ? reinterpret_cast<const char*>(composition) - at : 0;
    return SRecordKind{onVector, composition};
  }
  SRecordKind kind;
  if (m_isOnVector)
    kind.onVector = reinterpret_cast<const collector::ni::impl::CRecordOnVectorNoKey*>(at + m_onVectorAt);
  if (m_isComposition)
    kind.composition = reinterpret_cast<const collector::ni::ICompositionRecord*>(at + m_compositionAt);
  return kind;
}

void CJsonLineWriter::Header(std::string_view collection, std::string_view className)
{
  if (m_header.empty() || collection != m_collection || className != m_className)
  {
    m_collection = collection;
    m_className = className;
    m_header = R"({"collection":)" + QuoteUtf8(collection) + R"(,"class":)" + QuoteUtf8(className) + ",";
  }
  Raw(m_header);
}

void CJsonLineWriter::AppendRecordLine(rapidjson::StringBuffer& out, std::string_view collection,
                                       std::string_view className, collector::ni::IRecord& record)
{
  m_out = &out;
  m_nextKey = 0;
  Header(collection, className);
  const SRecordKind kind = kindOf(record);
  if (kind.composition != nullptr)
  {
    Literal(R"("type":)");
    Number<10>([&](char* at) { return rapidjson::internal::u32toa(kind.composition->GetType(), at); });
    out.Put(',');
  }
  if (collector::ni::IKey* key = record.GetKey())
  {
    Literal(R"("key":{)");
    bool first = true;
    for (const auto& field : key->GetFields())
    {
      Key(lookUpKey(field->GetName(), nullptr), first);
      first = false;
      Value(field->GetValue());
    }
    Literal("},");
  }
  Literal(R"("fields":)");
  RecordFields(kind.onVector);
  Literal("}\n");
}

void CJsonLineWriter::AppendStateLine(rapidjson::StringBuffer& out, std::string_view collection,
                                      std::string_view className, const ICollectionTypes::IState& state)
{
  m_out = &out;
  Header(collection, className);
  Literal(R"("state":)");
  Text(StateName(state.GetState()));
  Literal(R"(,"description":)");
  Text(state.GetDescription());
  Literal("}\n");
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

// JSON lines for records and state changes, as every natc collection command prints them:
//   {"collection":"{GUID}","class":"WindowsEvents","type":1,"key":{"InternalId":1},"fields":{...}}
//   {"collection":"{GUID}","class":"WindowsEvents","state":"Running","description":""}
// Field values by alternative: text -> string, integer -> number, real -> number, date-time ->
// ISO 8601 UTC with milliseconds and "Z" (null when not valid), list -> array of strings,
// GUID -> "{...}" in upper case, nested object -> object of its fields (null when not a record).
// Fields appear in record order. JsonLinePrinter is a subscriber that writes these lines, in
// large blocks (output/BlockOutput.h); CJsonLineWriter appends them to a buffer.
#pragma once

#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/ICollection.h"
#include "Collector/Interfaces/IRecord.h"
#include "Collector.Interfaces.Impl.h"

#include "output/BlockOutput.h"

#include <rapidjson/stringbuffer.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

namespace natc
{
std::string FormatGuid(const GUID& id);
// "YYYY-MM-DDTHH:MM:SS.mmmZ", or empty when the date-time is not valid.
std::string FormatDateTime(const COleDateTimeEx& time);
constexpr std::size_t dateTimeSize = 24;
// The same into text; returns its length, 0 when not valid.
std::size_t FormatDateTime(const COleDateTimeEx& time, char (&text)[dateTimeSize]);
std::string FormatRecordLine(const GUID& collectionId, std::wstring_view className, collector::ni::IRecord& record);
std::string FormatStateLine(const GUID& collectionId, std::wstring_view className,
                            const collector::ni::ICollectionTypes::IState& state);
std::wstring_view StateName(collector::ni::ICollectionTypes::States state) noexcept;

// Appends whole lines (with their newline) to a buffer, writing straight into it: keys are
// encoded once per collection's names, texts are converted and escaped in one pass, numbers are
// written as RapidJSON's Writer writes them. Keeps its scratch space between lines.
class CJsonLineWriter
{
public:
  void AppendRecordLine(rapidjson::StringBuffer& out, std::string_view collection, std::string_view className,
                        collector::ni::IRecord& record);
  void AppendStateLine(rapidjson::StringBuffer& out, std::string_view collection, std::string_view className,
                       const collector::ni::ICollectionTypes::IState& state);

private:
  struct SKey
  {
    // Held so that the name's address stays its own while it is looked up by address.
    std::shared_ptr<tstring> owner;
    std::wstring text;
    // ,"text": ready to copy, then keyPadding zeros; the comma is left out before an object's
    // first key.
    std::string encoded;
    std::size_t length = 0;
    // Held for this very name object (no other can be at its address while it is held): no
    // need to compare the texts.
    bool HeldBy(const tstring& name) const noexcept { return owner.get() == &name && text.size() == name.size(); }
  };
  static constexpr std::size_t keyPadding = 16;

  void Raw(std::string_view text);
  template <std::size_t N>
  void Literal(const char (&text)[N])
  {
    std::memcpy(m_out->Push(N - 1), text, N - 1);
  }
  void Text(std::wstring_view text);
  // A number as RapidJSON's Writer writes it (so numbers print as they always did): `write`
  // puts at most Worst characters at its argument and returns their end.
  template <std::size_t Worst, class Write>
  void Number(Write write)
  {
    char* const at = m_out->Push(Worst);
    m_out->Pop(Worst - static_cast<std::size_t>(write(at) - at));
  }
  void Value(const collector::ni::FieldValue& value);
  void Fields(const std::vector<collector::ni::impl::CField>& fields);
  // The fields of a record built on a vector; other records (null) print as an empty object.
  void RecordFields(const collector::ni::impl::CRecordOnVectorNoKey* onVector);
  // A key, with the comma when it is not the first of its object.
  void Key(const SKey& key, bool first);
  // The key of a name, encoded on its first use; owner, when known, is the name's shared object.
  // Names are found by the address of their shared object first, then by their text.
  const SKey& lookUpKey(const tstring& name, const std::shared_ptr<tstring>* owner);
  const SKey& findKey(const tstring& name, const std::shared_ptr<tstring>* owner);
  // {"collection":...,"class":..., quoted once per pair.
  void Header(std::string_view collection, std::string_view className);
  // The record as the list of fields it is built on and as a composition record (each null when
  // it is not one): dynamic casts once per kind of record, as every line needs both.
  struct SRecordKind
  {
    const collector::ni::impl::CRecordOnVectorNoKey* onVector = nullptr;
    const collector::ni::ICompositionRecord* composition = nullptr;
  };
  SRecordKind kindOf(collector::ni::IRecord& record);

  static constexpr std::size_t maxKeys = 64;
  // RapidJSON's Writer default: the shortest text that reads back as the same double.
  static constexpr int maxDecimalPlaces = 324;
  rapidjson::StringBuffer* m_out = nullptr;
  std::vector<SKey> m_keys;
  // Where the next key is looked for first: records of one collection repeat their keys in order.
  std::size_t m_nextKey = 0;
  // A key met when the list is full, encoded for its one use.
  SKey m_spareKey;
  std::string m_collection;
  std::string m_className;
  std::string m_header;
  // The last date-time written, by its value's bits, and its quoted text when it is valid.
  bool m_timeKnown = false;
  bool m_timeValid = false;
  std::uint64_t m_timeBits = 0;
  char m_timeText[dateTimeSize + 2] = {};
  // The last kind of record cast: its type, where its IRecord lies in the whole object, and
  // where the results of the casts lie from that IRecord.
  const std::type_info* m_recordType = nullptr;
  std::ptrdiff_t m_recordAt = 0;
  std::ptrdiff_t m_onVectorAt = 0;
  std::ptrdiff_t m_compositionAt = 0;
  bool m_isOnVector = false;
  bool m_isComposition = false;
};

// Prints every record and state change of the collections it is subscribed to, one line each.
// Safe to call from several pool threads, and several printers may share one stream: lines
// never interleave.
class JsonLinePrinter : public collector::ni::ICollectionTypes::ISubscriber
{
public:
  JsonLinePrinter(const std::wstring& className, std::FILE* out);
  void OnRecords(const GUID& collectionId, collector::ni::ICollectionTypes::Records records) override;
  void OnStateChanged(const GUID& collectionId, const collector::ni::ICollectionTypes::IState& state) override;
  std::size_t RecordCount() const;
  // Writes every line printed so far.
  void Flush();

private:
  // Called under the sink's lock, as m_writer is.
  const std::string& collectionText(const GUID& collectionId);

  std::string m_className;
  std::shared_ptr<CBlockOutput> m_out;
  CJsonLineWriter m_writer;
  GUID m_collectionId{};
  std::string m_collectionText;
  std::atomic<std::size_t> m_records = 0;
};
} // namespace natc

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

#include "output/BlockOutput.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
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

// Appends whole lines (with their newline) to a buffer; keeps its scratch space between lines.
class CJsonLineWriter
{
public:
  using Writer = rapidjson::Writer<rapidjson::StringBuffer>;
  void AppendRecordLine(rapidjson::StringBuffer& out, std::string_view collection, std::string_view className,
                        collector::ni::IRecord& record);
  void AppendStateLine(rapidjson::StringBuffer& out, std::string_view collection, std::string_view className,
                       const collector::ni::ICollectionTypes::IState& state);
  // A text value or key, converted once into UTF-8.
  void String(std::wstring_view text);
  void Key(std::wstring_view text);

private:
  // A text already quoted, in the place of a key or a value.
  void Quoted(std::string_view quoted);
  // The line's start, {"collection":...,"class":..., with both texts quoted once per pair.
  void Header(std::string_view collection, std::string_view className);

  static constexpr std::size_t maxKeys = 64;
  Writer m_writer;
  rapidjson::StringBuffer* m_out = nullptr;
  std::vector<std::pair<std::wstring, std::string>> m_keys;
  // Where the next key is looked for first: records of one collection repeat their keys in order.
  std::size_t m_nextKey = 0;
  std::string m_collection;
  std::string m_className;
  std::string m_quotedCollection;
  std::string m_quotedClassName;
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

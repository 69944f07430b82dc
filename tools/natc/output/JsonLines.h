// JSON lines for records and state changes, as every natc collection command prints them:
//   {"collection":"{GUID}","class":"WindowsEvents","type":1,"key":{"InternalId":1},"fields":{...}}
//   {"collection":"{GUID}","class":"WindowsEvents","state":"Running","description":""}
// Field values by alternative: text -> string, integer -> number, real -> number, date-time ->
// ISO 8601 UTC with milliseconds and "Z" (null when not valid), list -> array of strings,
// GUID -> "{...}" in upper case, nested object -> object of its fields (null when not a record).
// Fields appear in record order. JsonLinePrinter is a subscriber that writes these lines.
#pragma once

#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/ICollection.h"
#include "Collector/Interfaces/IRecord.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace natc
{
std::string FormatGuid(const GUID& id);
// "YYYY-MM-DDTHH:MM:SS.mmmZ", or empty when the date-time is not valid.
std::string FormatDateTime(const COleDateTimeEx& time);
std::string FormatRecordLine(const GUID& collectionId, std::wstring_view className, collector::ni::IRecord& record);
std::string FormatStateLine(const GUID& collectionId, std::wstring_view className,
                            const collector::ni::ICollectionTypes::IState& state);
std::wstring_view StateName(collector::ni::ICollectionTypes::States state) noexcept;

// Prints every record and state change of the collections it is subscribed to, one line each.
// Safe to call from several pool threads, and several printers may share one stream: lines
// never interleave.
class JsonLinePrinter : public collector::ni::ICollectionTypes::ISubscriber
{
public:
  JsonLinePrinter(std::wstring className, std::FILE* out);
  void OnRecords(const GUID& collectionId, collector::ni::ICollectionTypes::Records records) override;
  void OnStateChanged(const GUID& collectionId, const collector::ni::ICollectionTypes::IState& state) override;
  std::size_t RecordCount() const;

private:
  void write(const std::string& line);

  std::wstring m_className;
  std::FILE* m_out;
  mutable std::mutex m_lock;
  std::size_t m_records = 0;
};
} // namespace natc

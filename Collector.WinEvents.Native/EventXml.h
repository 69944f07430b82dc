// Reads the XML that EvtRender gives for one event into the raw texts the record is made of.
// Pure: a DOM (pugixml) over the text, no Event Log API call. One reader per collection: its
// conversion buffer and document are reused from event to event, so that reading costs no
// allocation once they have grown. Not thread-safe.
//   CEventXmlReader reader;
//   SEventXmlText text;
//   reader.Read(xml, text);      // throws CHResultException(E_FAIL) when xml is not well-formed
//   SEventValues values = MakeEventValues(text);
#pragma once

#include "KeldaKernel/OleDateTime.h"
#include "KeldaKernel/Strings.h"
#include "Platform/Windows.h"

#include <pugixml.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace collector::ni::impl
{
// The texts of the nodes a record needs; a missing node gives an empty text.
struct SEventXmlText
{
  tstring Provider;      // attribute "Name" of element "Provider"
  tstring SystemTime;    // attribute "SystemTime" of element "TimeCreated"
  tstring EventRecordId; // element "EventRecordID"
  tstring Channel;       // element "Channel"
  tstring Level;         // element "Level"
  tstring EventId;       // element "EventID"
  tstring Qualifiers;    // attribute "Qualifiers" of element "EventID"
  tstring UserId;        // attribute "UserID" of element "Security"
  std::vector<tstring> Data; // texts of the children of element "EventData", in document order
};

class CEventXmlReader
{
public:
  CEventXmlReader() = default;
  CEventXmlReader(const CEventXmlReader&) = delete;
  CEventXmlReader& operator=(const CEventXmlReader&) = delete;

  // The System values are the first children of that name of the root's System element, the
  // data the children of the root's first EventData element; the text of an element is all the
  // text below it. `text` is overwritten (its strings, the data's too, keep their capacity).
  void Read(std::wstring_view xml, SEventXmlText& text);

private:
  std::vector<char> m_utf8;
  pugi::xml_document m_document;
  std::size_t m_lastDataCount = 0;
  // Data strings of longer lists, kept with their buffers for the next longer one.
  static constexpr std::size_t maxSpareData = 64;
  std::vector<tstring> m_spareData;
};

// The typed values of a record that come from the XML alone (not the description, not the
// account): numbers read as _wtoi / _wtoi64 read them.
struct SEventValues
{
  tstring SourceName;
  COleDateTimeEx CreatedTime;
  int EventType = 3;
  std::vector<tstring> Data;
  int EventCode = 0;
  __int64 InternalId = 0;
  // _wtoi of "EventRecordID" widened: record numbers above 2^31 - 1 are not exact.
  __int64 RecordId = 0;
};

// Takes the provider name and the data texts over from `text` (they are moved out).
SEventValues MakeEventValues(SEventXmlText& text);

// Appends UTF-8 text to a wide string (invalid sequences become U+FFFD).
void AppendUtf8(tstring& out, std::string_view utf8);
// The UTF-8 form of a wide string (UTF-16 or UTF-32 by wchar_t's size) at the start of
// `buffer`, which grows as needed and is never shrunk; returns its length in bytes.
std::size_t WideToUtf8(std::wstring_view wide, std::vector<char>& buffer);
// The same into a string.
void WideToUtf8(std::wstring_view wide, std::string& out);
} // namespace collector::ni::impl

// Linux declarations of the Windows Event Log API, with Windows' names, values, signatures and
// last-error behaviour. The logs of a host are .evtx files in one directory, named as Windows
// names them ("Microsoft-Windows-Sysmon/Operational" is Microsoft-Windows-Sysmon%4Operational.evtx):
//   - EvtOpenSession's server is an absolute directory path, or "", "localhost", "." or this
//     machine's host name for the directory named by $NATC_EVENT_LOG_DIR (default
//     /var/log/winevt/Logs); any other name fails with RPC_S_SERVER_UNAVAILABLE. As on Windows,
//     the host and the logon are checked by EvtQuery, not by EvtOpenSession.
//   - Strings are wchar_t (4 bytes here); EvtRender sizes are in bytes, EvtFormatMessage sizes in
//     characters, as on Windows.
// Bodies live in Platform/linux/WinEvt/.
#pragma once

#include "Platform/linux/WinBase.h"

using EVT_HANDLE = HANDLE;
using PEVT_HANDLE = EVT_HANDLE*;
using LCID = DWORD;
using PDWORD = DWORD*;

// Environment variable naming the local machine's log directory, and its default.
#define NATC_EVENT_LOG_DIR_VARIABLE "NATC_EVENT_LOG_DIR"
#define NATC_EVENT_LOG_DIR_DEFAULT "/var/log/winevt/Logs"

// Event Log error codes (winerror.h).
constexpr DWORD ERROR_EVT_INVALID_CHANNEL_PATH = 15000;
constexpr DWORD ERROR_EVT_INVALID_QUERY = 15001;
constexpr DWORD ERROR_EVT_PUBLISHER_METADATA_NOT_FOUND = 15002;
constexpr DWORD ERROR_EVT_EVENT_TEMPLATE_NOT_FOUND = 15003;
constexpr DWORD ERROR_EVT_INVALID_PUBLISHER_NAME = 15004;
constexpr DWORD ERROR_EVT_INVALID_EVENT_DATA = 15005;
constexpr DWORD ERROR_EVT_CHANNEL_NOT_FOUND = 15007;
constexpr DWORD ERROR_EVT_MALFORMED_XML_TEXT = 15008;
constexpr DWORD ERROR_EVT_QUERY_RESULT_STALE = 15011;
constexpr DWORD ERROR_EVT_MESSAGE_NOT_FOUND = 15027;
constexpr DWORD ERROR_EVT_MESSAGE_ID_NOT_FOUND = 15028;
constexpr DWORD ERROR_EVT_UNRESOLVED_VALUE_INSERT = 15029;
constexpr DWORD ERROR_EVT_UNRESOLVED_PARAMETER_INSERT = 15030;

// The reply of a remote call would exceed its bounds: EvtNext asked for more large events than
// one reply holds (winerror.h).
constexpr DWORD RPC_S_INVALID_BOUND = 1734;
// EvtSeek with EvtSeekStrict found no such event (winerror.h).
constexpr DWORD ERROR_NOT_FOUND = 1168;

constexpr DWORD INFINITE = 0xFFFFFFFF;

enum EVT_LOGIN_CLASS
{
  EvtRpcLogin = 1
};

enum EVT_RPC_LOGIN_FLAGS
{
  EvtRpcLoginAuthDefault = 0,
  EvtRpcLoginAuthNegotiate,
  EvtRpcLoginAuthKerberos,
  EvtRpcLoginAuthNTLM
};

struct EVT_RPC_LOGIN
{
  LPWSTR Server;
  LPWSTR User;
  LPWSTR Domain;
  LPWSTR Password;
  DWORD Flags;
};

enum EVT_QUERY_FLAGS
{
  EvtQueryChannelPath = 0x1,
  EvtQueryFilePath = 0x2,
  EvtQueryForwardDirection = 0x100,
  EvtQueryReverseDirection = 0x200,
  EvtQueryTolerateQueryErrors = 0x1000
};

enum EVT_RENDER_FLAGS
{
  EvtRenderEventValues = 0,
  EvtRenderEventXml,
  EvtRenderBookmark
};

// Where EvtSeek counts its offset from; EvtSeekStrict fails instead of stopping at the ends:
// https://learn.microsoft.com/en-us/windows/win32/api/winevt/ne-winevt-evt_seek_flags
enum EVT_SEEK_FLAGS
{
  EvtSeekRelativeToFirst = 1,
  EvtSeekRelativeToLast = 2,
  EvtSeekRelativeToCurrent = 3,
  EvtSeekRelativeToBookmark = 4,
  EvtSeekOriginMask = 7,
  EvtSeekStrict = 0x10000
};

enum EVT_FORMAT_MESSAGE_FLAGS
{
  EvtFormatMessageEvent = 1,
  EvtFormatMessageLevel,
  EvtFormatMessageTask,
  EvtFormatMessageOpcode,
  EvtFormatMessageKeyword,
  EvtFormatMessageChannel,
  EvtFormatMessageProvider,
  EvtFormatMessageId,
  EvtFormatMessageXml
};

enum EVT_VARIANT_TYPE
{
  EvtVarTypeNull = 0,
  EvtVarTypeString = 1,
  EvtVarTypeAnsiString = 2,
  EvtVarTypeSByte = 3,
  EvtVarTypeByte = 4,
  EvtVarTypeInt16 = 5,
  EvtVarTypeUInt16 = 6,
  EvtVarTypeInt32 = 7,
  EvtVarTypeUInt32 = 8,
  EvtVarTypeInt64 = 9,
  EvtVarTypeUInt64 = 10,
  EvtVarTypeSingle = 11,
  EvtVarTypeDouble = 12,
  EvtVarTypeBoolean = 13,
  EvtVarTypeBinary = 14,
  EvtVarTypeGuid = 15,
  EvtVarTypeSizeT = 16,
  EvtVarTypeFileTime = 17,
  EvtVarTypeSysTime = 18,
  EvtVarTypeSid = 19,
  EvtVarTypeHexInt32 = 20,
  EvtVarTypeHexInt64 = 21,
  EvtVarTypeEvtHandle = 32,
  EvtVarTypeEvtXml = 35
};

enum EVT_EVENT_PROPERTY_ID
{
  EvtEventQueryIDs = 0,
  EvtEventPath,
  EvtEventPropertyIdEND
};

// Insertion values for EvtFormatMessage (accepted; messages come from a publisher's catalog), and
// the values EvtGetEventInfo returns.
struct EVT_VARIANT
{
  union
  {
    BOOL BooleanVal;
    std::int8_t SByteVal;
    std::int16_t Int16Val;
    std::int32_t Int32Val;
    std::int64_t Int64Val;
    std::uint8_t ByteVal;
    std::uint16_t UInt16Val;
    std::uint32_t UInt32Val;
    std::uint64_t UInt64Val;
    float SingleVal;
    double DoubleVal;
    ULONGLONG FileTimeVal;
    SYSTEMTIME* SysTimeVal;
    GUID* GuidVal;
    LPCWSTR StringVal;
    const char* AnsiStringVal;
    BYTE* BinaryVal;
    void* SidVal;
    std::size_t SizeTVal;
    EVT_HANDLE EvtHandleVal;
    LPCWSTR XmlVal;
  };
  DWORD Count;
  DWORD Type;
};
using PEVT_VARIANT = EVT_VARIANT*;

EVT_HANDLE EvtOpenSession(EVT_LOGIN_CLASS loginClass, PVOID login, DWORD timeout, DWORD flags) noexcept;
// Path: a channel (or a file with EvtQueryFilePath) for an XPath query; ignored for a query list.
EVT_HANDLE EvtQuery(EVT_HANDLE session, LPCWSTR path, LPCWSTR query, DWORD flags) noexcept;
// Up to eventsSize event handles; FALSE with ERROR_NO_MORE_ITEMS at the end, ERROR_TIMEOUT when
// the time-out passed before any event was found (the next call goes on from there), and
// ERROR_EVT_QUERY_RESULT_STALE once a log was cleared or wrapped over what the query had yet to read.
BOOL EvtNext(EVT_HANDLE resultSet, DWORD eventsSize, PEVT_HANDLE events, DWORD timeout, DWORD flags,
             PDWORD returned) noexcept;
// EvtRenderEventXml: the event's XML, EvtRenderBookmark: a bookmark's XML, each with its
// terminating zero; bufferUsed is in bytes.
BOOL EvtRender(EVT_HANDLE context, EVT_HANDLE fragment, DWORD flags, DWORD bufferSize, PVOID buffer,
               PDWORD bufferUsed, PDWORD propertyCount) noexcept;
EVT_HANDLE EvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisherId, LPCWSTR logFilePath, LCID locale,
                                    DWORD flags) noexcept;
// Sizes in characters, terminating zero included.
BOOL EvtFormatMessage(EVT_HANDLE publisherMetadata, EVT_HANDLE event, DWORD messageId, DWORD valueCount,
                      PEVT_VARIANT values, DWORD flags, DWORD bufferSize, LPWSTR buffer, PDWORD bufferUsed) noexcept;
// EvtEventPath: the channel or file path the event came from, as an EvtVarTypeString variant
// followed by its text in the caller's buffer (sizes in bytes). EvtEventQueryIDs is not provided
// (ERROR_NOT_SUPPORTED).
BOOL EvtGetEventInfo(EVT_HANDLE event, EVT_EVENT_PROPERTY_ID propertyId, DWORD propertyValueBufferSize,
                     PEVT_VARIANT propertyValueBuffer, PDWORD propertyValueBufferUsed) noexcept;
// Bookmarks: NULL for an empty one, or the XML that EvtRender(EvtRenderBookmark) gave;
// ERROR_EVT_MALFORMED_XML_TEXT for any other text.
EVT_HANDLE EvtCreateBookmark(LPCWSTR bookmarkXml) noexcept;
// Moves the bookmark's entry for the event's channel to the event, and makes it the current one.
BOOL EvtUpdateBookmark(EVT_HANDLE bookmark, EVT_HANDLE event) noexcept;
// Moves a result set's cursor: position is an offset in events from the origin the flags name.
BOOL EvtSeek(EVT_HANDLE resultSet, LONGLONG position, EVT_HANDLE bookmark, DWORD timeout, DWORD flags) noexcept;
BOOL EvtClose(EVT_HANDLE object) noexcept;

// Names of the fields of an event record, for producers and for callers that read them.
// Producers use the shared name objects of EventFieldNames() so that every field bearing a
// name points at the same string (one pointer per field, no copy of the text).
#pragma once

#include "KeldaKernel/Strings.h"

#include <memory>
#include <string_view>

namespace collector::ni::field_names
{
inline constexpr std::wstring_view SourceName = L"SourceName";
inline constexpr std::wstring_view Description = L"Description";
inline constexpr std::wstring_view CreatedTime = L"CreatedTime";
inline constexpr std::wstring_view InitiatedBy = L"InitiatedBy";
inline constexpr std::wstring_view EventType = L"EventType";
inline constexpr std::wstring_view Data = L"Data";
inline constexpr std::wstring_view EventCode = L"EventCode";
inline constexpr std::wstring_view InternalId = L"InternalId";
} // namespace collector::ni::field_names

namespace collector::ni::impl
{
// A field name that fields can share: make it once, hand the pointer to every field.
std::shared_ptr<tstring> MakeFieldName(std::wstring_view name);

struct SEventFieldNames
{
  std::shared_ptr<tstring> SourceName;
  std::shared_ptr<tstring> Description;
  std::shared_ptr<tstring> CreatedTime;
  std::shared_ptr<tstring> InitiatedBy;
  std::shared_ptr<tstring> EventType;
  std::shared_ptr<tstring> Data;
  std::shared_ptr<tstring> EventCode;
  std::shared_ptr<tstring> InternalId;
};

// The process-wide shared names of the event fields, made once (thread-safe on first use).
const SEventFieldNames& EventFieldNames();
} // namespace collector::ni::impl

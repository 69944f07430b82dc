#include "Collector/Interfaces/FieldNames.h"

namespace collector::ni::impl
{
std::shared_ptr<tstring> MakeFieldName(std::wstring_view name)
{
  return std::make_shared<tstring>(name);
}

const SEventFieldNames& EventFieldNames()
{
  static const SEventFieldNames names{
      MakeFieldName(field_names::SourceName), MakeFieldName(field_names::Description),
      MakeFieldName(field_names::CreatedTime), MakeFieldName(field_names::InitiatedBy),
      MakeFieldName(field_names::EventType),  MakeFieldName(field_names::Data),
      MakeFieldName(field_names::EventCode),  MakeFieldName(field_names::InternalId)};
  return names;
}
} // namespace collector::ni::impl

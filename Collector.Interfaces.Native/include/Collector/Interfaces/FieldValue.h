// The typed value of a record field, shared by every collection. The alternative index is part
// of the contract (callers test it), so the order below never changes:
//   0 text, 1 integer, 2 real, 3 date-time, 4 list of texts, 5 GUID, 6 nested object.
#pragma once

#include "Collector/Interfaces/IObject.h"
#include "KeldaKernel/OleDateTime.h"
#include "KeldaKernel/Strings.h"
#include "Platform/Windows.h"

#include <memory>
#include <variant>
#include <vector>

namespace collector::ni
{
using FieldValue = std::variant<tstring, __int64, double, COleDateTimeEx, std::vector<tstring>, GUID,
                                std::shared_ptr<IObject>>;
} // namespace collector::ni

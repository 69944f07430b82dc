// The CIM data model behind the Linux MI API: class declarations with qualifiers, and
// instances whose property values are typed exactly as MI types them.
// Providers build these; the MI layer serves them through MI_Instance and applies WQL.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cim
{
// MI type codes (MI_BOOLEAN = 0 ... MI_STRING = 13), as the public MI API numbers them.
enum class Type : std::uint32_t
{
  Boolean = 0, UInt8 = 1, SInt8 = 2, UInt16 = 3, SInt16 = 4, UInt32 = 5, SInt32 = 6,
  UInt64 = 7, SInt64 = 8, Real32 = 9, Real64 = 10, Char16 = 11, DateTime = 12, String = 13,
};

// MI_Datetime: a point in time (with its UTC offset in minutes) or an interval.
struct DateTime
{
  bool isTimestamp = true;
  // timestamp
  std::uint32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, microseconds = 0;
  std::int32_t utc = 0;
  // interval (microseconds above are shared)
  std::uint32_t days = 0, hours = 0, minutes = 0, seconds = 0;
};

// The alternative's index is the MI type code of the value.
using Value = std::variant<bool, std::uint8_t, std::int8_t, std::uint16_t, std::int16_t, std::uint32_t,
                           std::int32_t, std::uint64_t, std::int64_t, float, double, char16_t, DateTime,
                           std::wstring>;

constexpr Type TypeOf(const Value& value) { return static_cast<Type>(value.index()); }

struct Qualifier
{
  std::wstring name;
  Value value;
};

struct PropertyDecl
{
  std::wstring name;
  Type type = Type::String;
  std::vector<Qualifier> qualifiers;
};

struct ClassDecl
{
  std::wstring name;
  std::vector<PropertyDecl> properties;

  // Index of the property with that name (case-insensitive, as WQL and MI compare names), or npos.
  std::size_t Find(std::wstring_view propertyName) const;
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);
};

// One property of one instance: its value (nullopt is a CIM NULL) and, for tests, a forced
// failure of reading it (a non-zero MI result code returned by MI_Instance_GetElement).
struct Element
{
  std::optional<Value> value;
  std::uint32_t readError = 0;
};

struct Instance
{
  std::shared_ptr<const ClassDecl> decl;
  std::vector<Element> elements; // parallel to decl->properties

  explicit Instance(std::shared_ptr<const ClassDecl> classDecl)
      : decl(std::move(classDecl)), elements(decl->properties.size()) {}
  // Sets a property by name; throws std::out_of_range for a name the class does not declare.
  Instance& Set(std::wstring_view propertyName, Value value);
};

// A failure of a provider or of a query, carried as an MI result code (MI_RESULT_*).
struct Error
{
  std::uint32_t code;
  std::wstring message;
};
} // namespace cim

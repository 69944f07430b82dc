// One MI property value as MI_Instance_GetElement delivered it (raw union, type code, flags,
// and the property's declaration), and its typed reads. A read names the target type by
// assignment; a source type that does not convert throws CMiException(13) with no function
// name ("The value supplied is not compatible with the type"):
//   CMiValue value;
//   instance.Get(L"Count", value);
//   if (!value.IsNull()) { __int64 count = value.Value(); std::wstring_view name = other.Value(); }
// Targets: __int64, unsigned int, std::wstring_view (a view into the API's memory, valid while
// the instance is), COleDateTimeEx (UTC). CMiValueWithQualifiers adds the declaration's
// qualifiers (the "CounterType" of raw performance counters).
#pragma once

#include "MiException.h"

#include "KeldaKernel/OleDateTime.h"
#include "Platform/Mi.h"

#include <concepts>
#include <cstdint>
#include <optional>
#include <string_view>

// The date-time of an MI_Datetime in UTC: an interval as its length in days; a timestamp moved
// by its UTC offset; invalid when the timestamp's fields are out of range.
COleDateTimeEx MiDatetimeToOleDateTime(const MI_Datetime& value) noexcept;

// A real truncated toward zero; out of range and NaN give the minimum 64-bit value, as the
// processor's truncating conversion does.
__int64 TruncateReal(double value) noexcept;

class CMiValue
{
public:
  // Starts as a NULL value, so that a failed or skipped read never looks like data.
  CMiValue() noexcept = default;
  CMiValue(const MI_Value& value, MI_Type type, MI_Uint32 flags = 0) noexcept
    : m_value(value), m_type(type), m_flags(flags)
  {
  }
  CMiValue(const CMiValue&) = default;
  CMiValue& operator=(const CMiValue&) = default;
  virtual ~CMiValue() = default;

  const MI_Value& GetRaw() const noexcept { return m_value; }
  MI_Type GetType() const noexcept { return m_type; }
  MI_Uint32 GetFlags() const noexcept { return m_flags; }
  bool IsNull() const noexcept { return (m_flags & MI_FLAG_NULL) != 0; }
  // The class's declaration of the property last read into this value (null when none matched).
  const MI_PropertyDecl* GetPropertyDecl() const noexcept { return m_propertyDecl; }

  // Reads the value as the type it is assigned to.
  class ReturnTypeDeducer
  {
  public:
    template <int N>
    struct TypeInfo
    {
      static constexpr MI_Type type = static_cast<MI_Type>(N);
    };

    // One converter per target type and source type code; those not defined below refuse.
    template <class T, class Info>
    struct Converter
    {
      static T Convert(const CMiValue&) { KELDA_THROW(CMiException(MI_RESULT_TYPE_MISMATCH, {})); }
    };

    template <class T>
    static constexpr bool supported = std::same_as<T, __int64> || std::same_as<T, unsigned int> ||
                                      std::same_as<T, std::wstring_view> || std::same_as<T, COleDateTimeEx>;

    explicit ReturnTypeDeducer(const CMiValue& value) noexcept : m_value(value) {}

    template <class T>
      requires supported<T>
    operator T() const
    {
      return getValue<T>(m_value);
    }

    template <class T>
      requires supported<T>
    T getValue(const CMiValue& value) const
    {
      switch (value.GetType())
      {
      case 0: return Converter<T, TypeInfo<0>>::Convert(value);
      case 1: return Converter<T, TypeInfo<1>>::Convert(value);
      case 2: return Converter<T, TypeInfo<2>>::Convert(value);
      case 3: return Converter<T, TypeInfo<3>>::Convert(value);
      case 4: return Converter<T, TypeInfo<4>>::Convert(value);
      case 5: return Converter<T, TypeInfo<5>>::Convert(value);
      case 6: return Converter<T, TypeInfo<6>>::Convert(value);
      case 7: return Converter<T, TypeInfo<7>>::Convert(value);
      case 8: return Converter<T, TypeInfo<8>>::Convert(value);
      case 9: return Converter<T, TypeInfo<9>>::Convert(value);
      case 10: return Converter<T, TypeInfo<10>>::Convert(value);
      case 11: return Converter<T, TypeInfo<11>>::Convert(value);
      case 12: return Converter<T, TypeInfo<12>>::Convert(value);
      case 13: return Converter<T, TypeInfo<13>>::Convert(value);
      default: break;
      }
      // Arrays, references and instances are never converted.
      KELDA_THROW(CMiException(MI_RESULT_TYPE_MISMATCH, {}));
    }

  private:
    const CMiValue& m_value;
  };

  ReturnTypeDeducer Value() const noexcept { return ReturnTypeDeducer(*this); }

private:
  friend class CMiInstance;

  MI_Value m_value{};
  MI_Type m_type = MI_BOOLEAN;
  MI_Uint32 m_flags = MI_FLAG_NULL;
  const MI_PropertyDecl* m_propertyDecl = nullptr;
};

// Integer sources (type codes 0 to 11) to __int64: booleans as 0 or 1 (any non-zero byte is
// true), signed types sign-extended, the unsigned 64-bit type by bit pattern, reals truncated
// toward zero, a char16 as its code unit.
template <int N>
  requires(N >= 0 && N <= 11)
struct CMiValue::ReturnTypeDeducer::Converter<__int64, CMiValue::ReturnTypeDeducer::TypeInfo<N>>
{
  static __int64 Convert(const CMiValue& value)
  {
    const MI_Value& raw = value.GetRaw();
    if constexpr (N == MI_BOOLEAN)
      return raw.boolean != 0 ? 1 : 0;
    else if constexpr (N == MI_UINT8)
      return raw.uint8;
    else if constexpr (N == MI_SINT8)
      return raw.sint8;
    else if constexpr (N == MI_UINT16)
      return raw.uint16;
    else if constexpr (N == MI_SINT16)
      return raw.sint16;
    else if constexpr (N == MI_UINT32)
      return raw.uint32;
    else if constexpr (N == MI_SINT32)
      return raw.sint32;
    else if constexpr (N == MI_UINT64)
      return static_cast<__int64>(raw.uint64);
    else if constexpr (N == MI_SINT64)
      return raw.sint64;
    else if constexpr (N == MI_REAL32)
      return TruncateReal(static_cast<double>(raw.real32));
    else if constexpr (N == MI_REAL64)
      return TruncateReal(raw.real64);
    else
      return raw.char16;
  }
};

// The same sources to unsigned int: the low 32 bits of the 64-bit reading.
template <int N>
  requires(N >= 0 && N <= 11)
struct CMiValue::ReturnTypeDeducer::Converter<unsigned int, CMiValue::ReturnTypeDeducer::TypeInfo<N>>
{
  static unsigned int Convert(const CMiValue& value)
  {
    return static_cast<unsigned int>(Converter<__int64, TypeInfo<N>>::Convert(value));
  }
};

template <>
struct CMiValue::ReturnTypeDeducer::Converter<COleDateTimeEx, CMiValue::ReturnTypeDeducer::TypeInfo<12>>
{
  static COleDateTimeEx Convert(const CMiValue& value) { return MiDatetimeToOleDateTime(value.GetRaw().datetime); }
};

template <>
struct CMiValue::ReturnTypeDeducer::Converter<std::wstring_view, CMiValue::ReturnTypeDeducer::TypeInfo<13>>
{
  // Callers test the NULL flag first; a null pointer still reads as empty rather than crash.
  static std::wstring_view Convert(const CMiValue& value)
  {
    const MI_Char* text = value.GetRaw().string;
    return text != nullptr ? std::wstring_view(text) : std::wstring_view();
  }
};

// A value with access to the qualifiers of its property's declaration.
class CMiValueWithQualifiers : public CMiValue
{
public:
  using CMiValue::CMiValue;

  std::size_t GetQualifierCount() const noexcept;
  // The qualifier at `index` of the declaration, or null.
  const MI_Qualifier* GetQualifier(std::size_t index) const noexcept;
  // The first qualifier with that name (compared without case, as CIM names are), or null.
  const MI_Qualifier* FindQualifier(std::wstring_view name) const noexcept;
  // The qualifier's value as an integer when it has an integer or boolean type and a value.
  std::optional<__int64> GetQualifierInteger(std::wstring_view name) const noexcept;
  // The qualifier's text when it is a string with a value.
  std::optional<std::wstring_view> GetQualifierString(std::wstring_view name) const noexcept;
};

// The texts of MI errors: the whole code table, the codes without a text, the function name
// framing, and the exception that carries them.
#include "MiException.h"

#include <gtest/gtest.h>

#include <boost/exception/exception.hpp>

#include <cstdint>
#include <iterator>
#include <string>
#include <utility>

namespace
{
// Codes as the texts take them; out-of-range codes cannot be held in MI_Result itself.
std::int32_t Code(std::uint32_t value)
{
  return static_cast<std::int32_t>(value);
}

const std::pair<MI_Result, const wchar_t*> kTable[] = {
  {MI_RESULT_FAILED, L"A general error occurred, not covered by a more specific error code"},
  {MI_RESULT_ACCESS_DENIED, L"Access to a CIM resource is not available to the client"},
  {MI_RESULT_INVALID_NAMESPACE, L"The target namespace does not exist"},
  {MI_RESULT_INVALID_PARAMETER, L"One or more parameter values passed to the method are not valid"},
  {MI_RESULT_INVALID_CLASS, L"The specified class does not exist"},
  {MI_RESULT_NOT_FOUND, L"The requested object cannot be found"},
  {MI_RESULT_NOT_SUPPORTED, L"The requested operation is not supported"},
  {MI_RESULT_CLASS_HAS_CHILDREN, L"The operation cannot be invoked because the class has subclasses"},
  {MI_RESULT_CLASS_HAS_INSTANCES, L"The operation cannot be invoked because the class has instances"},
  {MI_RESULT_INVALID_SUPERCLASS, L"The operation cannot be invoked because the superclass does not exist"},
  {MI_RESULT_ALREADY_EXISTS, L"The operation cannot be invoked because an object already exists"},
  {MI_RESULT_NO_SUCH_PROPERTY, L"The specified property does not exist"},
  {MI_RESULT_TYPE_MISMATCH, L"The value supplied is not compatible with the type"},
  {MI_RESULT_QUERY_LANGUAGE_NOT_SUPPORTED, L"The query language is not recognized or supported"},
  {MI_RESULT_INVALID_QUERY, L"The query is not valid for the specified query language"},
  {MI_RESULT_METHOD_NOT_AVAILABLE, L"The extrinsic method cannot be invoked"},
  {MI_RESULT_METHOD_NOT_FOUND, L"The specified extrinsic method does not exist"},
  {MI_RESULT_NAMESPACE_NOT_EMPTY, L"The specified namespace is not empty"},
  {MI_RESULT_INVALID_ENUMERATION_CONTEXT, L"The enumeration identified by the specified context is invalid"},
  {MI_RESULT_INVALID_OPERATION_TIMEOUT, L"The specified operation timeout is not supported by the CIM Server"},
  {MI_RESULT_PULL_HAS_BEEN_ABANDONED, L"The Pull operation has been abandoned"},
  {MI_RESULT_PULL_CANNOT_BE_ABANDONED, L"The attempt to abandon a concurrent Pull operation failed"},
  {MI_RESULT_FILTERED_ENUMERATION_NOT_SUPPORTED, L"Using a filter in the enumeration is not supported by the CIM server"},
  {MI_RESULT_CONTINUATION_ON_ERROR_NOT_SUPPORTED, L"The CIM server does not support continuation on error"},
  {MI_RESULT_SERVER_LIMITS_EXCEEDED, L"The operation failed because server limits were exceeded"},
  {MI_RESULT_SERVER_IS_SHUTTING_DOWN, L"The CIM server is shutting down and cannot process the operation"},
};

TEST(MiResultText, WholeTable)
{
  for (const auto& [code, text] : kTable)
  {
    const auto number = static_cast<std::int32_t>(code);
    EXPECT_EQ(tstring(text), GetMiResultText(number)) << number;
    EXPECT_EQ(tstring(text), FormatMiErrorMessage(number, L"")) << number;
    EXPECT_EQ(tstring(text), CMiException(code, L"").message()) << number;
    EXPECT_EQ(L"MI_Instance_GetElement (" + tstring(text) + L")", CMiException(code, L"MI_Instance_GetElement").message())
      << number;
  }
}

TEST(MiResultText, TableCodesAreThoseOfTheEnumeration)
{
  static_assert(MI_RESULT_OK == 0);
  static_assert(MI_RESULT_FAILED == 1);
  static_assert(MI_RESULT_METHOD_NOT_FOUND == 17);
  static_assert(MI_RESULT_NAMESPACE_NOT_EMPTY == 20);
  static_assert(MI_RESULT_SERVER_IS_SHUTTING_DOWN == 28);
  EXPECT_EQ(26u, std::size(kTable));
}

TEST(MiResultText, CimServerCapitalOnlyInCode22)
{
  EXPECT_NE(tstring::npos, GetMiResultText(Code(22)).find(L"CIM Server"));
  EXPECT_NE(tstring::npos, GetMiResultText(Code(25)).find(L"CIM server"));
  EXPECT_EQ(tstring::npos, GetMiResultText(Code(25)).find(L"CIM Server"));
}

TEST(MiResultText, GapsInTheEnumerationHaveNoText)
{
  EXPECT_EQ(L"MI error 18", GetMiResultText(Code(18)));
  EXPECT_EQ(L"MI error 19", GetMiResultText(Code(19)));
  EXPECT_EQ(L"MI_Session_QueryInstances (MI error 19)", FormatMiErrorMessage(Code(19), L"MI_Session_QueryInstances"));
  // 18 and 19 lie inside the enumeration's range, so the exception itself can carry them.
  EXPECT_EQ(L"MI error 18", CMiException(static_cast<MI_Result>(18), L"").message());
  EXPECT_EQ(L"MI_Instance_GetElement (MI error 19)", CMiException(static_cast<MI_Result>(19), L"MI_Instance_GetElement").message());
}

TEST(MiResultText, CodeZeroHasNoText)
{
  EXPECT_EQ(L"MI error 0", GetMiResultText(Code(0)));
  EXPECT_EQ(L"MI error 0", CMiException(MI_RESULT_OK, L"").message());
}

TEST(MiResultText, CodesBeyondTheTableInSignedDecimal)
{
  EXPECT_EQ(L"MI error 29", GetMiResultText(Code(29)));
  EXPECT_EQ(L"MI error 1000", GetMiResultText(Code(1000)));
  EXPECT_EQ(L"MI error 2147483647", GetMiResultText(Code(0x7FFFFFFF)));
  EXPECT_EQ(L"MI error -1", GetMiResultText(Code(0xFFFFFFFF)));
  EXPECT_EQ(L"MI error -2147483648", GetMiResultText(Code(0x80000000)));
  EXPECT_EQ(L"MI error -28", GetMiResultText(Code(static_cast<std::uint32_t>(-28))));
}

TEST(MiErrorMessage, EmptyFunctionNameGivesBareText)
{
  EXPECT_EQ(L"The target namespace does not exist", FormatMiErrorMessage(Code(3), L""));
  EXPECT_EQ(L"The target namespace does not exist", FormatMiErrorMessage(Code(3), std::wstring_view()));
  EXPECT_EQ(L"The target namespace does not exist", CMiException(MI_RESULT_INVALID_NAMESPACE, L"").message());
}

TEST(MiErrorMessage, FunctionNameFirstThenTextInParentheses)
{
  EXPECT_EQ(L"MI_Application_NewSession (Access to a CIM resource is not available to the client)",
            FormatMiErrorMessage(Code(2), L"MI_Application_NewSession"));
  EXPECT_EQ(L"MI_Session_QueryInstances (The target namespace does not exist)",
            FormatMiErrorMessage(Code(3), L"MI_Session_QueryInstances"));
}

TEST(MiErrorMessage, FunctionNameIsTakenAsGiven)
{
  // Braces in the name are text, not format fields.
  EXPECT_EQ(L"f{}({}) (MI error 99)", FormatMiErrorMessage(Code(99), L"f{}({})"));
  const std::wstring longer = L"MI_Instance_GetElementCount and more";
  EXPECT_EQ(L"MI_Instance_GetElementCount (The specified class does not exist)",
            FormatMiErrorMessage(Code(5), std::wstring_view(longer).substr(0, 27)));
}

TEST(CMiException, CarriesTheMessage)
{
  const CMiException error(MI_RESULT_ACCESS_DENIED, L"MI_Application_NewSession");
  EXPECT_EQ(L"MI_Application_NewSession (Access to a CIM resource is not available to the client)", error.message());
  EXPECT_EQ(error.message(), error.description());
  EXPECT_EQ(error.message(), get_description(error));
  EXPECT_STREQ("MI_Application_NewSession (Access to a CIM resource is not available to the client)", error.what());
}

TEST(CMiException, HresultIsGenericFailure)
{
  const CMiException error(MI_RESULT_INVALID_CLASS, L"MI_Session_QueryInstances");
  EXPECT_EQ(E_FAIL, error.hresult());
  EXPECT_EQ(E_FAIL, get_hresult(error));
}

void ThrowQueryFailure()
{
  KELDA_THROW(CMiException(MI_RESULT_INVALID_QUERY, L"MI_Session_QueryInstances"));
}

TEST(CMiException, ThrownWithLocationAndCaughtAsKernelException)
{
  try
  {
    ThrowQueryFailure();
    FAIL() << "no exception";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_NE(nullptr, dynamic_cast<const CMiException*>(&error));
    EXPECT_NE(nullptr, dynamic_cast<const boost::exception*>(&error));
    EXPECT_EQ(L"MI_Session_QueryInstances (The query is not valid for the specified query language)", error.message());
    EXPECT_NE(std::string::npos, get_throw_function(error).find("ThrowQueryFailure"));
    EXPECT_NE(std::string::npos, get_throw_file(error).find("MiExceptionTest.cpp"));
    EXPECT_GT(get_throw_line(error), 0);
  }
}

TEST(CMiException, CopyKeepsMessageAndLocation)
{
  try
  {
    ThrowQueryFailure();
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    // The copy is the subject of this test.
    const CMiException copy(error); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(error.message(), copy.message());
    EXPECT_EQ(get_throw_function(error), get_throw_function(copy));
    EXPECT_EQ(get_throw_file(error), get_throw_file(copy));
    EXPECT_EQ(get_throw_line(error), get_throw_line(copy));
    // Rethrowing the copy keeps it whole.
    try
    {
      throw copy;
    }
    catch (const std::exception& again)
    {
      EXPECT_EQ(error.message(), get_description(again));
    }
  }
}
} // namespace

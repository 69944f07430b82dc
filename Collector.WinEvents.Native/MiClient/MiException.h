// The one exception of the MI client: every MI call that returns a code other than
// MI_RESULT_OK is reported as a CMiException naming the failed API function and the meaning of
// the code, e.g. "MI_Session_QueryInstances (The target namespace does not exist)".
//   if (result != MI_RESULT_OK) KELDA_THROW(CMiException(result, L"MI_Session_QueryInstances"));
// hresult() stays the kernel family's E_FAIL: an MI code is not an HRESULT, and callers read
// the code's meaning from the message.
#pragma once

#include "KeldaKernel/Exceptions.h"
#include "KeldaKernel/Strings.h"

#include "Platform/Mi.h"

#include <cstdint>
#include <string_view>

// The texts take the code as a plain 32-bit integer: a code outside the MI_Result enumeration
// may not be held in the enumeration type itself.

// The English meaning of an MI result code; "MI error {code}" (signed decimal) for codes
// without one.
tstring GetMiResultText(std::int32_t code);

// The exception's message: "{function} ({meaning})", or the bare meaning for an empty name.
tstring FormatMiErrorMessage(std::int32_t code, std::wstring_view function);

class CMiException : public CKeldaException
{
public:
  CMiException(MI_Result code, std::wstring_view function);
};

#include "MiApplication.h"

#include "MiException.h"

CMiApplication::CMiApplication(CreateTag)
{
  const MI_Result result = MI_Application_InitializeV1(0, nullptr, nullptr, &m_application);
  if (result != MI_RESULT_OK)
  {
    KELDA_THROW(CMiException(result, L"MI_Application_Initialize"));
  }
}

std::shared_ptr<CMiApplication> CMiApplication::CreateInstance()
{
  return std::make_shared<CMiApplication>(CreateTag{});
}

CMiApplication::~CMiApplication()
{
  if (m_application.ft != nullptr)
  {
    // Nothing useful can be done about a failed close while tearing down.
    static_cast<void>(MI_Application_Close(&m_application));
  }
}

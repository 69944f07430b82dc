#include "MiSession.h"

#include "MiException.h"

#include "KeldaKernel/Strings.h"

#include <utility>

namespace
{
// Deletes the destination options whichever way Connect leaves.
class CDestinationOptionsGuard
{
public:
  explicit CDestinationOptionsGuard(MI_DestinationOptions& options) noexcept : m_options(options) {}
  ~CDestinationOptionsGuard() { MI_DestinationOptions_Delete(&m_options); }
  CDestinationOptionsGuard(const CDestinationOptionsGuard&) = delete;
  CDestinationOptionsGuard& operator=(const CDestinationOptionsGuard&) = delete;

private:
  MI_DestinationOptions& m_options;
};
} // namespace

CMiSession::CMiSession(std::shared_ptr<CMiApplication> application) noexcept : m_application(std::move(application))
{
}

CMiSession::~CMiSession()
{
  if (m_session.ft != nullptr)
  {
    // Null completion context and callback: a synchronous close.
    static_cast<void>(MI_Session_Close(&m_session, nullptr, nullptr));
  }
  m_session = MI_Session MI_SESSION_NULL;
  m_application.reset();
}

MI_Application* CMiSession::application() const noexcept
{
  return m_application ? static_cast<MI_Application*>(*m_application) : nullptr;
}

void CMiSession::Connect(std::wstring_view host, std::wstring_view domain, std::wstring_view user,
                         std::wstring_view password)
{
  // The API takes NUL-terminated strings; copies make any view safe to pass.
  const tstring hostText(host);
  const tstring domainText(domain);
  const tstring userText(user);
  const tstring passwordText(password);

  MI_Application* app = application();
  MI_DestinationOptions options MI_DESTINATIONOPTIONS_NULL;
  MI_Result result = MI_RESULT_INVALID_PARAMETER;
  if (app != nullptr && app->ft != nullptr)
  {
    result = MI_Application_NewDestinationOptions(app, &options);
  }
  if (result != MI_RESULT_OK)
  {
    KELDA_THROW(CMiException(result, L"MI_Application_NewDestinationOptions"));
  }
  const CDestinationOptionsGuard guard(options);

  if (options.ft != nullptr)
  {
    // Failures of these two options are deliberately ignored: a bad credential shows up as the
    // first operation's failure, which names the real problem.
    static_cast<void>(MI_DestinationOptions_SetPacketPrivacy(&options, MI_TRUE));
    if (!userText.empty())
    {
      MI_UserCredentials credentials{};
      credentials.authenticationType = MI_AUTH_TYPE_DEFAULT;
      credentials.credentials.usernamePassword.domain = domainText.c_str();
      credentials.credentials.usernamePassword.username = userText.c_str();
      credentials.credentials.usernamePassword.password = passwordText.c_str();
      static_cast<void>(MI_DestinationOptions_AddDestinationCredentials(&options, &credentials));
    }
  }

  if (app != nullptr && app->ft != nullptr)
  {
    result = MI_Application_NewSession(app, L"WMIDCOM", hostText.c_str(), options.ft != nullptr ? &options : nullptr,
                                       nullptr, nullptr, &m_session);
  }
  else
  {
    m_session = MI_Session MI_SESSION_NULL;
    result = MI_RESULT_INVALID_PARAMETER;
  }
  if (result != MI_RESULT_OK)
  {
    KELDA_THROW(CMiException(result, L"MI_Application_NewSession"));
  }
}

CMiInstanceOperation CMiSession::QueryInstances(std::wstring_view nameSpace, std::wstring_view query)
{
  const tstring nameSpaceText(nameSpace);
  const tstring queryText(query);
  MI_Operation operation MI_OPERATION_NULL;
  if (m_session.ft != nullptr)
  {
    // Null callbacks make the operation synchronous: the caller pulls the results.
    MI_Session_QueryInstances(&m_session, 0, nullptr, nameSpaceText.c_str(), L"WQL", queryText.c_str(), nullptr,
                              &operation);
  }
  if (operation.ft == nullptr)
  {
    // Whatever refused the start, the API gives no code for it here.
    KELDA_THROW(CMiException(MI_RESULT_FAILED, L"MI_Session_QueryInstances"));
  }
  return CMiInstanceOperation(operation, &DrainOneInstance);
}

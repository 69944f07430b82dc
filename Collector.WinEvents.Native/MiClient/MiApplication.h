// Owns one MI client application (the API's per-process client context). Sessions keep the
// application alive through its shared pointer; it is closed when the last holder lets go.
//   auto application = CMiApplication::CreateInstance();   // throws CMiException on failure
//   MI_Application* raw = *application;                      // for code that calls the API
#pragma once

#include "Collector/WinEvents/Export.h"
#include "Platform/Mi.h"

#include <memory>

class NATC_COLLECTOR_API CMiApplication : public std::enable_shared_from_this<CMiApplication>
{
  struct CreateTag
  {
    explicit CreateTag() = default;
  };

public:
  // A new, independent application each time; no process-wide cache.
  static std::shared_ptr<CMiApplication> CreateInstance();

  // Only CreateInstance can make the tag: the object always lives in a shared pointer.
  explicit CMiApplication(CreateTag);
  ~CMiApplication();
  CMiApplication(const CMiApplication&) = delete;
  CMiApplication& operator=(const CMiApplication&) = delete;

  // The owned handle; its function table is null while not initialised.
  operator MI_Application*() noexcept { return &m_application; }

private:
  MI_Application m_application MI_APPLICATION_NULL;
};

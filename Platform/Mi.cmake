# platform_mi: the MI client API. On Windows the system's mi.dll (bound at run time with
# MinGW-w64, which has no mi.lib); elsewhere our own bodies, which answer from the CIM providers of
# this machine and from hosts that tests attach.
if(WIN32 AND MSVC)
  natc_library(platform_mi INTERFACE INCLUDE include DEPS mi)
elseif(WIN32)
  natc_library(platform_mi STATIC SOURCES windows/MiLoader.cpp INCLUDE include DEPS platform_winbase)
else()
  # cim, cim_wql and cim_providers are declared later (Cim/ comes after Platform/); CMake links
  # targets by name at generation time, so the order does not matter.
  natc_library(platform_mi STATIC
    SOURCES
      linux/Mi/Application.cpp
      linux/Mi/ClassDecl.cpp
      linux/Mi/DestinationOptions.cpp
      linux/Mi/Instance.cpp
      linux/Mi/Monitor.cpp
      linux/Mi/Operation.cpp
      linux/Mi/Session.cpp
    INCLUDE include linux/Mi/include
    DEPS cim cim_wql cim_providers)
endif()

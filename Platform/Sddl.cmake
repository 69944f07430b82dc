# SID conversion and account lookup: advapi32 on Windows, our well-known table elsewhere.
if(WIN32)
  natc_library(platform_sddl INTERFACE DEPS platform_winbase advapi32)
else()
  natc_library(platform_sddl STATIC
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/linux/Sddl.cpp
    DEPS platform_winbase)
endif()

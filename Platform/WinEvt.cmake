# The Windows Event Log API: wevtapi on Windows; elsewhere our bodies over .evtx files.
if(WIN32)
  natc_library(platform_wevtapi INTERFACE DEPS platform_winbase wevtapi)
else()
  natc_library(platform_wevtapi STATIC
    SOURCES
      linux/WinEvt/Bookmark.cpp
      linux/WinEvt/BookmarkXml.cpp
      linux/WinEvt/EventInfo.cpp
      linux/WinEvt/Handles.cpp
      linux/WinEvt/Hosts.cpp
      linux/WinEvt/Publisher.cpp
      linux/WinEvt/Query.cpp
      linux/WinEvt/RecordIdSet.cpp
      linux/WinEvt/Render.cpp
      linux/WinEvt/ResultSet.cpp
      linux/WinEvt/Seek.cpp
      linux/WinEvt/Session.cpp
    DEPS platform_winbase
    PRIVATE_DEPS evtx_query evtx_format pugixml::static)
endif()

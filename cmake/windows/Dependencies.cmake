# The Windows build's dependencies as the targets the Linux build gets from find_package.
# scripts/windows-deps.sh fills NATC_WINDOWS_DEPS/prefix: static pugixml, Boost.Thread and
# GoogleTest built for MinGW-w64, and links to Debian's header-only fmt, spdlog, nlohmann-json,
# RapidJSON and Boost headers.
set(NATC_WINDOWS_DEPS "${PROJECT_BINARY_DIR}/deps" CACHE PATH "Prefix folder of the Windows dependencies")
set(prefix ${NATC_WINDOWS_DEPS}/prefix)
if(NOT EXISTS ${prefix}/lib/libboost_thread.a)
  message(FATAL_ERROR "Windows dependencies missing in ${prefix}: run scripts/windows-deps.sh")
endif()

function(natc_imported name)
  cmake_parse_arguments(A "" "LIBRARY" "DEFINES;DEPS" ${ARGN})
  if(A_LIBRARY)
    add_library(${name} STATIC IMPORTED GLOBAL)
    set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${prefix}/lib/${A_LIBRARY})
  else()
    add_library(${name} INTERFACE IMPORTED GLOBAL)
  endif()
  set_target_properties(${name} PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES ${prefix}/include
    INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${prefix}/include)
  if(A_DEFINES)
    set_property(TARGET ${name} PROPERTY INTERFACE_COMPILE_DEFINITIONS ${A_DEFINES})
  endif()
  if(A_DEPS)
    set_property(TARGET ${name} PROPERTY INTERFACE_LINK_LIBRARIES ${A_DEPS})
  endif()
endfunction()

natc_imported(fmt::fmt DEFINES FMT_HEADER_ONLY)
natc_imported(spdlog::spdlog DEFINES SPDLOG_HEADER_ONLY DEPS fmt::fmt)
natc_imported(nlohmann_json::nlohmann_json)
# RapidJSON is header-only; natc's output takes its include folder.
set(RAPIDJSON_INCLUDE_DIRS ${prefix}/include)
# Asio (the kernel pool's io_context) needs Winsock.
natc_imported(Boost::boost DEFINES BOOST_ALL_NO_LIB DEPS ws2_32 mswsock)
add_library(Boost::headers ALIAS Boost::boost)
natc_imported(Boost::thread LIBRARY libboost_thread.a DEFINES BOOST_THREAD_USE_LIB DEPS Boost::boost)
natc_imported(pugixml::static LIBRARY libpugixml.a)
add_library(pugixml::pugixml ALIAS pugixml::static)
natc_imported(GTest::gtest LIBRARY libgtest.a)
natc_imported(GTest::gtest_main LIBRARY libgtest_main.a DEPS GTest::gtest)
natc_imported(GTest::gmock LIBRARY libgmock.a DEPS GTest::gtest)
add_library(Threads::Threads INTERFACE IMPORTED GLOBAL)
set(Threads_FOUND TRUE)
# zlib comes from Debian's libz-mingw-w64-dev; its static archive keeps zlib1.dll out.
set(ZLIB_USE_STATIC_LIBS ON)

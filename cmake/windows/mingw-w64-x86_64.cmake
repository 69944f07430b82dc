# Toolchain for the Windows build with MinGW-w64 (x86_64, posix thread model, so that std::thread
# and std::mutex exist). Used by scripts/build.sh windows; the tests run through Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(NATC_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${NATC_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${NATC_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${NATC_MINGW_TRIPLET}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${NATC_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The C++ runtime (libstdc++, libgcc, winpthread) is linked in, so that the DLL and the
# executables need nothing beside them but the system's DLLs.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

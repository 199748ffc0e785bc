# Cross-compiles for 64-bit Windows with Debian's MinGW-w64 (posix thread model, so that
# std::thread and std::mutex work). Test programs run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QZ_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${QZ_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QZ_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${QZ_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${QZ_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Nothing but system DLLs at run time: the compiler's own runtimes go in statically.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static")

# The prefix of what tools/windows_deps.sh builds (jsoncpp, OpenSSL), searched like the
# toolchain's own root.
set(QZ_WINDOWS_DEPS "" CACHE PATH "Prefix of the Windows dependencies (tools/windows_deps.sh)")
if(QZ_WINDOWS_DEPS)
  list(APPEND CMAKE_FIND_ROOT_PATH ${QZ_WINDOWS_DEPS})
endif()

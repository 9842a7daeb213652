# Cross-compiling for Windows x64 with Debian's MinGW-w64 (g++-mingw-w64-x86-64).
#   cmake -S windows -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(INKWEAVE_MINGW_PREFIX x86_64-w64-mingw32)

# The POSIX thread model gives the full C++ threading library; it is linked statically like the rest
# of the runtime, so the DLL needs no MinGW DLL beside it. Fall back to the default alternative.
find_program(INKWEAVE_MINGW_CXX NAMES ${INKWEAVE_MINGW_PREFIX}-g++-posix ${INKWEAVE_MINGW_PREFIX}-g++ REQUIRED)
find_program(INKWEAVE_MINGW_CC NAMES ${INKWEAVE_MINGW_PREFIX}-gcc-posix ${INKWEAVE_MINGW_PREFIX}-gcc REQUIRED)
set(CMAKE_CXX_COMPILER ${INKWEAVE_MINGW_CXX})
set(CMAKE_C_COMPILER ${INKWEAVE_MINGW_CC})
set(CMAKE_RC_COMPILER ${INKWEAVE_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${INKWEAVE_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

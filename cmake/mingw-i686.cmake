# Toolchain for the Windows flavour: 32-bit Windows programs (PE32, i386)
# cross-compiled by Debian's MinGW-w64, their tests run under Wine.
#
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake
#
# The posix thread model gives std::thread and std::mutex to the tests; the
# programs themselves use Win32 threads through the platform layer.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(VANTOR_MINGW_TRIPLE i686-w64-mingw32)
set(CMAKE_C_COMPILER ${VANTOR_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VANTOR_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VANTOR_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${VANTOR_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(VANTOR_WINDOWS ON CACHE BOOL "Build the Windows flavour (MinGW-w64 i686)")

# CTest starts every test program through Wine. Wine runs 32-bit programs
# only with its 32-bit half installed (Debian: wine32 from i386).
find_program(VANTOR_WINE_EMULATOR wine)
if(VANTOR_WINE_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${VANTOR_WINE_EMULATOR})
endif()

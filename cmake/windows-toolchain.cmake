# 64-bit Windows, cross-built with mingw-w64; what is built runs under Wine.
#
#   cmake -S . -B build/windows -DCMAKE_TOOLCHAIN_FILE=cmake/windows-toolchain.cmake
#
# The compilers are those with POSIX threads: the C++ library of the others has no std::thread. Files with 32-byte vectors
# need -Wa,-muse-unaligned-vector-move as well, as this compiler does not align the stack for them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(triple x86_64-w64-mingw32)
find_program(VEXAKRN_WINDOWS_CC NAMES ${triple}-gcc-posix ${triple}-gcc REQUIRED)
find_program(VEXAKRN_WINDOWS_CXX NAMES ${triple}-g++-posix ${triple}-g++ REQUIRED)
set(CMAKE_C_COMPILER "${VEXAKRN_WINDOWS_CC}")
set(CMAKE_CXX_COMPILER "${VEXAKRN_WINDOWS_CXX}")
set(CMAKE_RC_COMPILER ${triple}-windres)

# The compiler's run time goes into each program and library: they need the system's own DLLs and no others.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
set(CMAKE_MODULE_LINKER_FLAGS_INIT -static)

# Headers and libraries of the target only, programs of this machine. What CMAKE_PREFIX_PATH names was built for the target.
set(CMAKE_FIND_ROOT_PATH /usr/${triple} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Wine keeps its files in the build tree, says nothing of its own, makes no menus or add-ons when it starts first, and
# starts no debugger when a program crashes: the program just ends.
find_program(VEXAKRN_WINE NAMES wine wine64 PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
set(VEXAKRN_WINE_ENVIRONMENT
    "WINEPREFIX=${CMAKE_BINARY_DIR}/wine" WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml,winemenubuilder.exe,winedbg.exe=)
if(VEXAKRN_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR env ${VEXAKRN_WINE_ENVIRONMENT} "${VEXAKRN_WINE}")
endif()

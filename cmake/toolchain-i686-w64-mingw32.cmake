# Cross-compiling for 32-bit Windows with Debian's MinGW-w64 (g++-mingw-w64-i686):
#   cmake -S . -B build-win32 -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-i686-w64-mingw32.cmake
set(TARVO_MINGW_TRIPLE i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-common.cmake)

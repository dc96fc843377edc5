# Cross toolchain for the 32-bit Windows build, the one that ships for the 32-bit host.
# There is no 32-bit Wine here, so this build is compiled and linked but never run.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(TOOLCHAIN_PREFIX i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)

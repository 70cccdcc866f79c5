# Cross build of the Windows program, 32-bit, which is the one that is released (mingw-w64).
set(VELMORA_TARGET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)

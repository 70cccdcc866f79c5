# Cross build of the Windows program, 32-bit (mingw-w64): this is the one that is released.
set(VELMORA_TARGET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)

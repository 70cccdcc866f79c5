# Cross build of the Windows program, 64-bit (mingw-w64).
set(VELMORA_TARGET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)

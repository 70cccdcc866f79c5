add_library(velmora_platform STATIC
  platform/win32/browser.cpp
  platform/win32/clock.cpp
  platform/win32/control_host.cpp
  platform/win32/dialog.cpp
  platform/win32/digest.cpp
  platform/win32/files.cpp
  platform/win32/http.cpp
  platform/win32/ini.cpp
  platform/win32/memory.cpp
  platform/win32/paths.cpp
  platform/win32/processes.cpp
  platform/win32/threads.cpp
  platform/win32/url.cpp
  platform/win32/wide_text.cpp
)
target_link_libraries(velmora_platform PUBLIC velmora_base wininet shlwapi advapi32 shell32 ole32
                                              oleaut32 uuid imagehlp user32 gdi32 comctl32)

# The resource compiler's rules see only what it includes.
set_source_files_properties(${CMAKE_SOURCE_DIR}/resources/velmora.rc PROPERTIES OBJECT_DEPENDS
  "${CMAKE_SOURCE_DIR}/resources/velmora.manifest;${CMAKE_SOURCE_DIR}/resources/velmora.ico")
add_executable(VelmoraUpdate WIN32 platform/win32/main.cpp ${CMAKE_SOURCE_DIR}/resources/velmora.rc)
target_link_libraries(VelmoraUpdate PRIVATE velmora_core velmora_platform)

add_library(velmora_platform STATIC
  platform/win32/browser.cpp
  platform/win32/clock.cpp
  platform/win32/console.cpp
  platform/win32/control_host.cpp
  platform/win32/dialog.cpp
  platform/win32/digest.cpp
  platform/win32/disk.cpp
  platform/win32/file_lock.cpp
  platform/win32/folder_link.cpp
  platform/win32/files.cpp
  platform/win32/flush_directory.cpp
  platform/win32/http.cpp
  platform/win32/ini.cpp
  platform/win32/paths.cpp
  platform/win32/processes.cpp
  platform/win32/start.cpp
  platform/win32/threads.cpp
  platform/win32/url.cpp
  platform/win32/utf16.cpp
  platform/win32/utf8.cpp
)
target_link_libraries(velmora_platform PUBLIC velmora_base shlwapi advapi32 shell32 ole32 oleaut32
                                              uuid user32 gdi32 comctl32)

# delayed_library(NAME FUNCTION@BYTES...): a system library that is loaded on the first call of one of its
# functions. BYTES is the size of a function's arguments, which is part of its name in 32-bit programs.
# Needed for libraries that Windows would load from the program's own folder if they were loaded with the
# program: those that aren't "known" (HKLM\System\CurrentControlSet\Control\Session Manager\KnownDLLs), and
# those that forward calls to one that isn't.
function(delayed_library name)
  set(functions ${ARGN})
  set(prefix _)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    list(TRANSFORM functions REPLACE "@[0-9]+" "")
    set(prefix "")
  endif()
  # Calls don't refer to a function's stub, so the 32-bit linker would drop it; but the first call jumps
  # to its address.
  foreach(function ${functions})
    target_link_options(velmora_platform INTERFACE -Wl,--undefined=${prefix}${function})
  endforeach()
  list(JOIN functions "\n" functions)
  file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${name}.def
       CONTENT "LIBRARY ${name}.dll\nEXPORTS\n${functions}\n")
  add_custom_command(OUTPUT lib${name}_delayed.a
    COMMAND ${VELMORA_TARGET}-dlltool --kill-at --input-def ${name}.def
            --output-delaylib lib${name}_delayed.a
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
    DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/${name}.def)
  add_custom_target(${name}_delayed
                    DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/lib${name}_delayed.a)
  add_dependencies(velmora_platform ${name}_delayed)
  target_link_libraries(velmora_platform
                        PUBLIC ${CMAKE_CURRENT_BINARY_DIR}/lib${name}_delayed.a delayimp)
endfunction()
delayed_library(imagehlp MakeSureDirectoryPathExists@4)  # forwards to dbghelp, which games bring along
delayed_library(wininet
  HttpOpenRequestA@32
  HttpQueryInfoA@20
  HttpSendRequestA@20
  InternetCanonicalizeUrlA@16
  InternetCloseHandle@4
  InternetConnectA@32
  InternetCrackUrlA@16
  InternetOpenA@20
  InternetQueryDataAvailable@16
  InternetQueryOptionA@16
  InternetReadFile@16
  InternetSetOptionA@16)

# The resource compiler reports what it includes, but not the manifest and the icon.
set_source_files_properties(${CMAKE_SOURCE_DIR}/resources/velmora.rc PROPERTIES OBJECT_DEPENDS
  "${CMAKE_SOURCE_DIR}/resources/velmora.manifest;${CMAKE_SOURCE_DIR}/resources/velmora.ico")
add_executable(VelmoraUpdate WIN32 programs/patcher_win32.cpp ${CMAKE_SOURCE_DIR}/resources/velmora.rc)
target_link_libraries(VelmoraUpdate PRIVATE velmora_core velmora_platform)

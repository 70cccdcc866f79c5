find_package(CURL REQUIRED)
find_package(OpenSSL REQUIRED)

file(GLOB dialog_sources CONFIGURE_DEPENDS platform/posix/dialog/*.cpp)
if(VELMORA_DESKTOP)
  include(platform/posix/desktop/desktop.cmake)
else()
  find_library(TINFO_LIBRARY tinfo REQUIRED)
  set(loop_libraries ${TINFO_LIBRARY})
  file(GLOB loop_sources CONFIGURE_DEPENDS platform/posix/terminal/*.cpp)
endif()
add_library(velmora_platform STATIC
  platform/posix/clock.cpp
  platform/posix/console.cpp
  platform/posix/digest.cpp
  platform/posix/disk.cpp
  platform/posix/file_lock.cpp
  platform/posix/folder_link.cpp
  platform/posix/files.cpp
  platform/posix/http.cpp
  platform/posix/ini.cpp
  platform/posix/native_path.cpp
  platform/posix/paths.cpp
  platform/posix/processes.cpp
  platform/posix/standard_descriptors.cpp
  platform/posix/threads.cpp
  platform/posix/url.cpp
  platform/posix/utf8.cpp
  ${dialog_sources}
  ${loop_sources}
)
target_link_libraries(velmora_platform PUBLIC velmora_base CURL::libcurl OpenSSL::Crypto Threads::Threads
                                       PRIVATE ${loop_libraries})

# The program file has this name on every system: its own name is part of its behaviour.
add_executable(VelmoraUpdate programs/patcher_posix.cpp)
set_target_properties(VelmoraUpdate PROPERTIES SUFFIX ".exe")
target_link_libraries(VelmoraUpdate PRIVATE velmora_core velmora_platform)

# The dialog as a window of GTK, with the publisher's page rendered by WebKit.
find_package(PkgConfig REQUIRED)
pkg_check_modules(WEBKITGTK REQUIRED IMPORTED_TARGET gtk4 webkitgtk-6.0)
set(loop_libraries PkgConfig::WEBKITGTK)

# The icon lies in the program file, since a game's folder has no icon theme.
find_program(GLIB_COMPILE_RESOURCES glib-compile-resources REQUIRED)
set(icon_sources ${CMAKE_CURRENT_BINARY_DIR}/desktop_icon.c)
add_custom_command(OUTPUT ${icon_sources}
  COMMAND ${GLIB_COMPILE_RESOURCES} --generate-source --manual-register --c-name=desktop_icon
          --sourcedir=${CMAKE_SOURCE_DIR}/resources --target=${icon_sources}
          ${CMAKE_SOURCE_DIR}/resources/desktop.gresource.xml
  DEPENDS ${CMAKE_SOURCE_DIR}/resources/desktop.gresource.xml
          ${CMAKE_SOURCE_DIR}/resources/velmora-update-48.png
          ${CMAKE_SOURCE_DIR}/resources/velmora-update-128.png)

file(GLOB loop_sources CONFIGURE_DEPENDS platform/posix/desktop/*.cpp)
list(APPEND loop_sources ${icon_sources})

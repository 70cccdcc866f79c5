# The Debian packages, made by cpack in builds of the presets `package` and `package-desktop`.
set(debian_version ${PROJECT_VERSION}-1)
file(STRINGS packaging/changelog latest LIMIT_COUNT 1)
if(NOT latest MATCHES "^velmora-update \\(${debian_version}\\)")
  message(FATAL_ERROR "packaging/changelog has no entry for ${debian_version}")
endif()

find_program(GZIP gzip REQUIRED)
add_custom_command(OUTPUT changelog.Debian.gz
  COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog >changelog.Debian.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog)
add_custom_target(changelog ALL DEPENDS changelog.Debian.gz)
if(VELMORA_DESKTOP)
  set(components desktop)
else()
  set(components patcher publisher)
endif()
set(package_of_patcher velmora-update)
set(package_of_publisher velmora-publish)
set(package_of_desktop velmora-update-desktop)
foreach(component ${components})
  set(package ${package_of_${component}})
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${package})
  install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz DESTINATION ${doc} COMPONENT ${component})
  install(FILES packaging/copyright.${package} RENAME copyright DESTINATION ${doc} COMPONENT ${component})
  install(FILES packaging/overrides.${package} RENAME ${package}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  string(TOUPPER ${component} part)
  set(CPACK_DEBIAN_${part}_PACKAGE_NAME ${package})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmora-update)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Velmora Update maintainers <maintainers@velmora.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_strip.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE velmora-update)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_PATCHER_PACKAGE_SECTION games)
set(CPACK_DEBIAN_PATCHER_PACKAGE_SUGGESTS velmora-publish)
set(CPACK_DEBIAN_PATCHER_DESCRIPTION "patcher that updates a game from its publisher's web server
A player starts Velmora Update instead of a game. It updates the installation
to what the publisher's web server offers, verifies every file, replaces
itself when the publisher has a new patcher, and starts the game.
.
The program works as a copy in the game's own folder. This package has the
program for Linux terminals and scripts to copy from, and its manual.")

set(CPACK_DEBIAN_DESKTOP_PACKAGE_SECTION games)
set(CPACK_DEBIAN_DESKTOP_PACKAGE_RECOMMENDS "fonts-noto-cjk | fonts-ipafont-gothic, velmora-update")
set(CPACK_DEBIAN_DESKTOP_DESCRIPTION "patcher that updates a game, in a window with the publisher's page
A player starts Velmora Update instead of a game. It updates the installation
to what the publisher's web server offers, verifies every file, replaces
itself when the publisher has a new patcher, and starts the game.
.
The program works as a copy in the game's own folder. This package has the
program for Linux desktops to copy from. It shows the publisher's page in its
window. The package velmora-update has the one for terminals, and the manual.")

set(CPACK_DEBIAN_PUBLISHER_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PUBLISHER_PACKAGE_SUGGESTS "nginx | httpd, velmora-update")
set(CPACK_DEBIAN_PUBLISHER_DESCRIPTION "publishing tool for the game patcher Velmora Update
velmora-publish makes what the patcher Velmora Update downloads: a folder
for any web server, with a reference list and compressed files.
.
It finds mistakes before players do, tells what an update costs them, goes
forward and back between publications in one step, and verifies what a
server really delivers.")
include(CPack)

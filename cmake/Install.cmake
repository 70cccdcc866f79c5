# Where `cmake --install` puts everything, in three components: what players need, on a terminal or on a desktop, and
# what publishers need.
include(GNUInstallDirs)

# The icon and the menu entry, which isn't shown, are for the windows of patchers in games' folders: desktops find both
# by the windows' name.
if(VELMORA_DESKTOP)
  install(TARGETS VelmoraUpdate DESTINATION lib/velmora-update-desktop COMPONENT desktop)
  install(FILES packaging/velmora-update.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications COMPONENT desktop)
  foreach(size 48 128)
    install(FILES resources/velmora-update-${size}.png RENAME velmora-update.png
            DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps COMPONENT desktop)
  endforeach()
  return()
endif()

# The patcher works only as a copy in a game's folder, where it replaces itself: see VelmoraUpdate(6).
install(TARGETS VelmoraUpdate DESTINATION lib/velmora-update COMPONENT patcher)
install(FILES docs/limits.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/velmora-update COMPONENT patcher)

install(TARGETS velmora-publish DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT publisher)
set(VELMORA_PUBLISHER_DOC ${CMAKE_INSTALL_DATADIR}/doc/velmora-publish)
install(FILES docs/publishing.md docs/pipeline.md docs/limits.md docs/performance.md
              docs/performance-growth.svg
        DESTINATION ${VELMORA_PUBLISHER_DOC} COMPONENT publisher)
install(DIRECTORY docs/examples DESTINATION ${VELMORA_PUBLISHER_DOC} COMPONENT publisher)

# Where `cmake --install` puts everything, in two components: what players need, and what publishers need.
include(GNUInstallDirs)

# The patcher works only as a copy in a game's folder, where it replaces itself: see VelmoraUpdate(6).
install(TARGETS VelmoraUpdate DESTINATION lib/velmora-update COMPONENT patcher)
install(FILES docs/limits.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/velmora-update COMPONENT patcher)

install(TARGETS velmora-publish DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT publisher)
set(VELMORA_PUBLISHER_DOC ${CMAKE_INSTALL_DATADIR}/doc/velmora-publish)
install(FILES docs/publishing.md docs/pipeline.md docs/limits.md docs/performance.md
              docs/performance-growth.svg
        DESTINATION ${VELMORA_PUBLISHER_DOC} COMPONENT publisher)
install(DIRECTORY docs/examples DESTINATION ${VELMORA_PUBLISHER_DOC} COMPONENT publisher)

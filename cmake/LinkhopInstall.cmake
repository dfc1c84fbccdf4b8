# `cmake --install <build> --prefix <folder>` lays out one portable folder: the client, the server,
# the article list, the icon and (on Linux) a desktop entry, side by side, because both programs
# look for each other, the article list and their option files in their own folder. CPack packs
# that folder as an archive (`cpack` or the `package` target), all but the desktop entry (the
# component "desktop"), which names the folder's place, unknown until the archive is unpacked.

# Qt comes from the system's library folder; a library placed beside the programs comes first.
set(linkhop_programs LinkhopServer)
if(LINKHOP_BUILD_CLIENT)
    list(APPEND linkhop_programs linkhop)
endif()
set_target_properties(${linkhop_programs} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${linkhop_programs} RUNTIME DESTINATION . COMPONENT folder)
install(FILES data/articles.txt DESTINATION . COMPONENT folder)

if(LINKHOP_BUILD_CLIENT)
    install(FILES data/icons/linkhop.svg data/icons/linkhop.png DESTINATION . COMPONENT folder)
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
        install(CODE "set(linkhop_desktop_template \"${PROJECT_SOURCE_DIR}/data/linkhop.desktop.in\")
                      set(linkhop_desktop_work \"${PROJECT_BINARY_DIR}/desktop-entry\")" COMPONENT desktop)
        install(SCRIPT cmake/LinkhopDesktopEntry.cmake COMPONENT desktop)
    endif()
endif()

set(CPACK_PACKAGE_NAME Linkhop)
set(CPACK_PACKAGE_VENDOR Linkhop)
set(CPACK_PACKAGE_FILE_NAME "Linkhop-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}")
set(CPACK_GENERATOR TGZ)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL folder)
include(CPack)

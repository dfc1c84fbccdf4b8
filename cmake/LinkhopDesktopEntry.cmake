# Install script: writes linkhop.desktop into the installed folder, naming the program and the
# icon there by their absolute paths, as a desktop entry must.
# Expects linkhop_desktop_template and linkhop_desktop_work from the install code before it.
get_filename_component(folder "${CMAKE_INSTALL_PREFIX}" ABSOLUTE)
set(linkhop_exec "\"${folder}/linkhop\"")
set(linkhop_icon "${folder}/linkhop.png")
configure_file("${linkhop_desktop_template}" "${linkhop_desktop_work}/linkhop.desktop" @ONLY)
file(INSTALL "${linkhop_desktop_work}/linkhop.desktop" DESTINATION "${CMAKE_INSTALL_PREFIX}")

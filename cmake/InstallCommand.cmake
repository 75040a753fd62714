# spinlane_install_command(NAME [PROGRAM FILE] [COMPONENT COMPONENT])
# Installs command NAME (the target of that name, or the script FILE) in bin with its manual page,
# NAME.1 beside the calling folder's sources, gzipped as Debian wants it, in the component of its
# package (spinlane unless told).
function(spinlane_install_command name)
  cmake_parse_arguments(ARG "" "PROGRAM;COMPONENT" "" ${ARGN})
  if(NOT ARG_COMPONENT)
    set(ARG_COMPONENT spinlane)
  endif()
  if(ARG_PROGRAM)
    install(PROGRAMS ${ARG_PROGRAM} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${ARG_COMPONENT})
  else()
    install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${ARG_COMPONENT})
  endif()

  set(page ${CMAKE_BINARY_DIR}/man/${name}.1)
  configure_file(${name}.1 ${page} @ONLY)
  add_custom_command(OUTPUT ${page}.gz COMMAND gzip -9nkf ${page} DEPENDS ${page})
  add_custom_target(${name}-manual ALL DEPENDS ${page}.gz)
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${ARG_COMPONENT})
endfunction()

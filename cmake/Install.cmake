# What `cmake --install` lays out, in one place. On Windows one flat folder
# (the zip): the EXEs, the DLLs beside them (the loader looks there first),
# the demo firmware, the documents. On Linux the tools go to bin/ and the
# receiver, the probe simulator's libraries and the demo firmware to a
# private folder, lib/vestrel/, that the tools' RPATH names relative to their
# own place ($ORIGIN), never the build tree.
if(WIN32)
  # One flat folder, as the zip unpacks.
  set(VESTREL_INSTALL_BINDIR .)
  set(VESTREL_INSTALL_LIBDIR .)
  set(VESTREL_INSTALL_DOCDIR .)
else()
  set(VESTREL_INSTALL_BINDIR bin)
  set(VESTREL_INSTALL_DOCDIR share/doc/vestrel)
  set(VESTREL_INSTALL_LIBDIR lib/vestrel)
  set_target_properties(vestrel-host vestrel-decode PROPERTIES INSTALL_RPATH "$ORIGIN/../lib/vestrel")
  set_target_properties(Vestrel SetupAdapter4 DeviceIdentifier ICETargetAdapter PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

install(TARGETS vestrel-host vestrel-decode RUNTIME DESTINATION ${VESTREL_INSTALL_BINDIR})
install(TARGETS Vestrel SetupAdapter4 DeviceIdentifier ICETargetAdapter
  RUNTIME DESTINATION ${VESTREL_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${VESTREL_INSTALL_LIBDIR})
install(FILES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/demo-firmware.elf DESTINATION ${VESTREL_INSTALL_LIBDIR})
install(FILES README.md CHANGELOG.md DESTINATION ${VESTREL_INSTALL_DOCDIR})
if(WIN32)
  set(VESTREL_VERSION ${PROJECT_VERSION})
  configure_file(packaging/README-windows.txt ${CMAKE_BINARY_DIR}/packaging/README-windows.txt @ONLY NEWLINE_STYLE CRLF)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/README-windows.txt DESTINATION .)
endif()

# What a Debian package needs besides (Linux only): the copyright file, the
# changelog compressed as Debian wants it, lintian's overrides for the demo's
# Arm firmware and, when VESTREL_MAN_PAGES is on, a manual page for each tool
# made from its --help by help2man.
if(NOT WIN32)
  set(doc share/doc/vestrel)
  set(changelog ${CMAKE_BINARY_DIR}/packaging/changelog.gz)
  add_custom_command(OUTPUT ${changelog}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
    COMMAND sh -c "gzip -9n -c \"$1\" > \"$2\"" gzip ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${changelog}
    DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md VERBATIM)
  add_custom_target(vestrel_changelog ALL DEPENDS ${changelog})
  install(FILES ${changelog} packaging/copyright DESTINATION ${doc})
  install(FILES packaging/lintian-overrides DESTINATION share/lintian/overrides RENAME vestrel)
  if(VESTREL_MAN_PAGES)
    find_program(HELP2MAN help2man REQUIRED)
    set(vestrel-host_summary "record, serve and export SWO trace through the Vestrel receiver")
    set(vestrel-decode_summary "decode ITM and DWT trace captured from SWO")
    foreach(tool vestrel-host vestrel-decode)
      set(page ${CMAKE_BINARY_DIR}/packaging/${tool}.1.gz)
      add_custom_command(OUTPUT ${page}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
        COMMAND sh -c "\"$1\" --no-info --no-discard-stderr --section 1 --name \"$4\" \"$2\" | gzip -9n > \"$3\""
          help2man ${HELP2MAN} $<TARGET_FILE:${tool}> ${page} ${${tool}_summary}
        DEPENDS ${tool} VERBATIM)
      add_custom_target(${tool}_manual_page ALL DEPENDS ${page})
      install(FILES ${page} DESTINATION share/man/man1)
    endforeach()
  endif()
endif()

# What `cmake --install` lays out, in one place. Tools go to bin/; the
# receiver, the probe simulator's libraries and the demo firmware go where
# the tools find them: on Windows beside the EXEs (the loader looks there
# first), on Linux in a private folder, lib/vestrel/, that the tools' RPATH
# names relative to their own place ($ORIGIN), never the build tree.
if(WIN32)
  set(VESTREL_INSTALL_LIBDIR bin)
else()
  set(VESTREL_INSTALL_LIBDIR lib/vestrel)
  set_target_properties(vestrel-host vestrel-decode PROPERTIES INSTALL_RPATH "$ORIGIN/../lib/vestrel")
  set_target_properties(Vestrel SetupAdapter4 DeviceIdentifier ICETargetAdapter PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

install(TARGETS vestrel-host vestrel-decode RUNTIME DESTINATION bin)
install(TARGETS Vestrel SetupAdapter4 DeviceIdentifier ICETargetAdapter
  RUNTIME DESTINATION ${VESTREL_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${VESTREL_INSTALL_LIBDIR})
install(FILES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/demo-firmware.elf DESTINATION ${VESTREL_INSTALL_LIBDIR})
install(FILES README.md CHANGELOG.md DESTINATION share/doc/vestrel)

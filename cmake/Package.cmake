# The packages `cpack` makes from an install (scripts/package runs it): a
# Debian package from the Linux build, a zip from the Windows build. Both
# are reproducible: file times come from SOURCE_DATE_EPOCH (the commit's
# time, set by scripts/package).
set(CPACK_PACKAGE_NAME vestrel)
set(CPACK_PACKAGE_VENDOR "Vestrel")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "SWO trace receiver, recorder and decoder for Cortex-M targets")
set(CPACK_PACKAGE_DESCRIPTION
  "Vestrel captures ARM CoreSight Serial Wire Output (ITM and DWT trace)
from a probe's auxiliary serial port or through any GDB server, records
it, serves it live over TCP and decodes it: text, JSON, a profile by
function, a Perfetto timeline and an HTML report.")
set(CPACK_PACKAGE_CONTACT "Vestrel developers <vestrel@users.noreply.github.com>")
set(CPACK_STRIP_FILES ON)
set(CPACK_THREADS 1)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME vestrel-${PROJECT_VERSION}-win64)
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SECTION devel)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://github.com/vestrel/vestrel")
  set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
endif()

include(CPack)

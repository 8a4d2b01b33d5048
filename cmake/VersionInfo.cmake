# vestrel_version_info(<target> <description>): on Windows, a VERSIONINFO
# resource for the target's file (FileVersion, ProductVersion, ProductName,
# FileDescription, OriginalFilename), from the project's version.
function(vestrel_version_info target description)
  if(NOT WIN32)
    return()
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set(version_file_type VFT_APP)
    set(suffix .exe)
  else()
    set(version_file_type VFT_DLL)
    set(suffix .dll)
  endif()
  set(version_description "${description}")
  set(version_name ${target})
  set(version_file_name ${target}${suffix})
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}.version.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/VersionInfo.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
  # For the tests that read the resource back.
  set_property(GLOBAL APPEND PROPERTY VESTREL_VERSION_INFO "${target}|${description}")
endfunction()

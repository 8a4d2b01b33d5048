# Writes FirmwareLayout.h: the demo firmware's functions (name, address,
# size) and local labels as the linker placed them, from arm-none-eabi-nm.
execute_process(COMMAND ${NM} -S --defined-only -n ${FIRMWARE} OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "arm-none-eabi-nm could not read ${FIRMWARE}")
endif()
string(REPLACE "\n" ";" lines "${symbols}")
set(entries "")
set(labels "")
set(data "")
foreach(line IN LISTS lines)
  # "20000034 B loop_count": a variable in RAM.
  if(line MATCHES "^([0-9a-f]+) B ([A-Za-z_][A-Za-z0-9_]*)$")
    string(APPEND data "    {\"${CMAKE_MATCH_2}\", 0x${CMAKE_MATCH_1}u},\n")
  endif()
  # "000000a4 t filter_sum": a local label inside a function.
  if(line MATCHES "^([0-9a-f]+) t ([A-Za-z_][A-Za-z0-9_]*)$")
    string(APPEND labels "    {\"${CMAKE_MATCH_2}\", 0x${CMAKE_MATCH_1}u},\n")
  endif()
  # "00000082 0000000a T read_sensor": sized global text symbols are the functions.
  if(line MATCHES "^([0-9a-f]+) ([0-9a-f]+) T ([A-Za-z_][A-Za-z0-9_]*)$")
    string(APPEND entries "    {\"${CMAKE_MATCH_3}\", 0x${CMAKE_MATCH_1}u, 0x${CMAKE_MATCH_2}u},\n")
  endif()
endforeach()
if(entries STREQUAL "")
  message(FATAL_ERROR "no functions in ${FIRMWARE}")
endif()
file(WRITE ${OUTPUT}.new
  "// Generated from the linked demo firmware's symbols; do not edit.\n"
  "#pragma once\n\n#include <cstdint>\n\nnamespace vestrel::target_simulator {\n\n"
  "struct FirmwareFunction {\n  const char* name;\n  std::uint32_t address;\n  std::uint32_t size;\n};\n\n"
  "inline constexpr FirmwareFunction kFirmwareFunctions[] = {\n${entries}};\n\n"
  "struct FirmwareLabel {\n  const char* name;\n  std::uint32_t address;\n};\n\n"
  "inline constexpr FirmwareLabel kFirmwareLabels[] = {\n${labels}};\n\n"
  "// Variables in RAM.\ninline constexpr FirmwareLabel kFirmwareVariables[] = {\n${data}};\n\n"
  "}  // namespace vestrel::target_simulator\n")
file(COPY_FILE ${OUTPUT}.new ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.new)

# Writes VestrelVersion.h: the project's version and, when the sources are a
# git checkout, the commit they were built from. Run at every build (the
# commit moves without CMake being run again); the file is rewritten only
# when its text changes, so nothing is rebuilt for nothing.
# Inputs: -DSOURCE_DIR=... -DOUTPUT=... -DVERSION=...
set(commit "")
if(EXISTS "${SOURCE_DIR}/.git")
  execute_process(COMMAND git -C "${SOURCE_DIR}" rev-parse --short=12 HEAD
    OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
  if(failed)
    set(commit "")
  endif()
endif()
set(text "${VERSION}")
if(commit)
  set(text "${VERSION} (commit ${commit})")
endif()
set(content "// Generated at build time from the project's version and git commit.
#pragma once
#define VESTREL_VERSION \"${VERSION}\"
#define VESTREL_VERSION_TEXT \"${text}\"
")
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" old)
else()
  set(old "")
endif()
if(NOT old STREQUAL content)
  file(WRITE "${OUTPUT}" "${content}")
endif()

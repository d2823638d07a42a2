# Writes the git commit of the source tree into a header, rewriting it only when the commit
# changes so that an unchanged tree rebuilds nothing. Run at every build by src/app.
#   cmake -DSOURCE_DIR=<repo> -DOUTPUT=<header> -P BuildCommit.cmake
find_package(Git QUIET)
set(commit "unknown")
if(GIT_FOUND)
  execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse --short=10 HEAD
                  WORKING_DIRECTORY ${SOURCE_DIR} OUTPUT_VARIABLE out RESULT_VARIABLE rc
                  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(rc EQUAL 0 AND out)
    set(commit "${out}")
    execute_process(COMMAND ${GIT_EXECUTABLE} diff --quiet HEAD --
                    WORKING_DIRECTORY ${SOURCE_DIR} RESULT_VARIABLE dirty ERROR_QUIET)
    if(NOT dirty EQUAL 0)
      string(APPEND commit "-modified")
    endif()
  endif()
endif()
set(text "// Generated at build time; do not edit.\n#pragma once\n#define TARNWELL_GIT_COMMIT \"${commit}\"\n")
set(old "")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} old)
endif()
if(NOT old STREQUAL text)
  file(WRITE ${OUTPUT} "${text}")
endif()

# Writes the source that `sorvel --version` reads (host/app/Version.h): the project's version and
# the commit the build came from. Run at every build (cmake -P); the source is rewritten only when
# its text changes, so nothing is recompiled for an unchanged commit, and a new commit recompiles
# this one function alone.
#   -DSOURCE_DIR=... -DOUTPUT=... -DVERSION=...
execute_process(COMMAND git -C "${SOURCE_DIR}" rev-parse --short=12 HEAD
                OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
if(failed OR commit STREQUAL "")
  set(commit "unknown")
else()
  execute_process(COMMAND git -C "${SOURCE_DIR}" status --porcelain --untracked-files=no
                  OUTPUT_VARIABLE changes OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT changes STREQUAL "")
    string(APPEND commit "-modified")
  endif()
endif()
string(CONCAT text "// Written by cmake/Version.cmake at every build.\n#include \"host/app/Version.h\"\n\n"
       "const char* sorvelVersionLine()\n{\n    return \"sorvel ${VERSION} (commit ${commit})\";\n}\n")
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" old)
endif()
if(NOT old STREQUAL text)
  file(WRITE "${OUTPUT}" "${text}")
endif()

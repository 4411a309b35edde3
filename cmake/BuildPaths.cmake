# The paths that tests and benchmarks open, compiled into one small generated source (library
# sorvel_build_paths, header tests/support/BuildPaths.h). Only that source names this clone's
# folders: every other compile is the same in every clone, so a compiler cache serves it.
# Included after every target is defined.
set(paths
  sourceDir "${PROJECT_SOURCE_DIR}"
  sorvelProgram "$<TARGET_FILE:sorvel_host>"
  sandboxProgram "$<TARGET_FILE:sorvel-sandbox>"
  packTool "$<TARGET_FILE:sorvel-pack>"
  pluginFile "$<TARGET_FILE:sorvel>"
  themePackage "${SORVEL_THEME_PACKAGE}"
  gadgetDescription "${SORVEL_GADGET_DESCRIPTION}"
  moduleDir "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}"
  pictureDir "${PROJECT_BINARY_DIR}/tests/views")
if(TARGET sorvel_broken_theme)
  list(APPEND paths brokenPluginFile "$<TARGET_FILE:sorvel_broken_theme>")
else()
  list(APPEND paths brokenPluginFile "")
endif()

set(content "// Written by CMake (cmake/BuildPaths.cmake): where this build put what tests open.\n")
string(APPEND content "#include \"tests/support/BuildPaths.h\"\n\nnamespace BuildPaths {\n\n")
while(paths)
  list(POP_FRONT paths name value)
  string(APPEND content "const char* ${name}()\n{\n    return \"${value}\";\n}\n\n")
endwhile()
string(APPEND content "} // namespace BuildPaths\n")
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/generated/BuildPaths.cpp CONTENT "${content}")

add_library(sorvel_build_paths STATIC ${PROJECT_BINARY_DIR}/generated/BuildPaths.cpp)
target_include_directories(sorvel_build_paths PUBLIC ${PROJECT_SOURCE_DIR})

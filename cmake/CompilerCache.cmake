# A compiler cache, when the machine has one, turns the compile of an unchanged source into a copy:
# another preset, another clone (CI's), the fuzz targets' build or a rebuild after switching
# branches. Paths are taken relative to the project's root, and the build folder is left out of
# the key, so that two clones of the project share what they compile.
#   sorvel_use_compiler_cache(ROOT)
function(sorvel_use_compiler_cache root)
  find_program(SORVEL_CCACHE ccache)
  if(SORVEL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${root} CCACHE_NOHASHDIR=true ${SORVEL_CCACHE}
        PARENT_SCOPE)
  endif()
endfunction()

# Compiles through ccache when it is installed.
#
# Paths below the build directory are made relative, so that build directories share the objects
# that include generated headers. Source paths stay absolute: the prefix map needs them so.

find_program(VESK_CCACHE ccache)
mark_as_advanced(VESK_CCACHE)

if(VESK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${CMAKE_BINARY_DIR}" CCACHE_NOHASHDIR=1
        "${VESK_CCACHE}"
    )
endif()

# Compiles through ccache when it is installed.
#
# Paths below the root are made relative, so that clones and build directories share objects.

find_program(VESK_CCACHE ccache)
mark_as_advanced(VESK_CCACHE)

if(VESK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1
        "${VESK_CCACHE}"
    )
endif()

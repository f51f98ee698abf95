# What every target of this project shares, whatever the build type.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The module's assertions are part of its behaviour, so no build type defines NDEBUG.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g")
set(CMAKE_CXX_FLAGS_MINSIZEREL "-Os")
add_compile_definitions(QT_FORCE_ASSERTS QT_NO_KEYWORDS)

# Assertions and __FILE__ name a file by its path from the root of the repository. moc includes
# headers by their path from the include directory for the same reason.
cmake_path(IS_PREFIX PROJECT_SOURCE_DIR "${CMAKE_BINARY_DIR}" VESK_BUILDS_IN_SOURCE)
if(VESK_CCACHE AND VESK_BUILDS_IN_SOURCE)
    # ccache turns paths below the root into relative ones, so that every clone shares its objects.
    file(RELATIVE_PATH source_from_build "${CMAKE_BINARY_DIR}" "${PROJECT_SOURCE_DIR}")
    add_compile_options("-ffile-prefix-map=${source_from_build}=")
else()
    add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
endif()
set(CMAKE_AUTOMOC_PATH_PREFIX ON)

add_link_options(-Wl,--as-needed)

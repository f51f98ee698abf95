# VESK_SANITIZE instruments the product and links every target with the sanitizer: a host that loads
# an instrumented plug-in needs the same one as the plug-in.

set(VESK_SANITIZE "" CACHE STRING "Sanitizers to build with")
set_property(CACHE VESK_SANITIZE PROPERTY STRINGS "" "address,undefined" "thread")

if(VESK_SANITIZE)
    if(NOT VESK_SANITIZE MATCHES "^(address,undefined|thread)$")
        message(FATAL_ERROR
            "VESK_SANITIZE is \"${VESK_SANITIZE}\"; it may be empty, "
            "\"address,undefined\" or \"thread\""
        )
    endif()
    # Line tables are enough for a report, and full optimisation of instrumented code doubles the
    # time of a build.
    set(VESK_SANITIZE_OPTIONS "-fsanitize=${VESK_SANITIZE}" -fno-omit-frame-pointer -O1 -g1)
    # GCC takes what the address sanitizer does to std::regex for a use of uninitialised memory.
    list(APPEND VESK_SANITIZE_OPTIONS -Wno-maybe-uninitialized)
    if(VESK_SANITIZE MATCHES "undefined")
        list(APPEND VESK_SANITIZE_OPTIONS -fno-sanitize-recover=undefined)
    endif()
    # A program that is not ours and loads an instrumented plug-in needs the runtime preloaded.
    if(VESK_SANITIZE STREQUAL "thread")
        set(runtime tsan)
    else()
        set(runtime asan)
    endif()
    execute_process(
        COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=lib${runtime}.so"
        OUTPUT_VARIABLE VESK_SANITIZER_RUNTIME
        OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY
    )
    add_compile_options(${VESK_SANITIZE_OPTIONS})
    add_link_options("-fsanitize=${VESK_SANITIZE}")
    if(VESK_SANITIZE STREQUAL "thread")
        # A library that a suppression names must not be unloaded with the plug-in that brought it.
        add_link_options(-Wl,-z,nodelete)
    endif()
endif()

# The address sanitizer looks for faults in the product; the tests' own code below a directory that
# calls this is compiled as for a release, which lets ccache share its objects with that build. The
# thread sanitizer has to know both sides of every hand-over: for it, tests are instrumented too.
macro(vesk_sanitize_product_only)
    if(VESK_SANITIZE MATCHES "address")
        get_directory_property(options COMPILE_OPTIONS)
        list(REMOVE_ITEM options ${VESK_SANITIZE_OPTIONS})
        set_directory_properties(PROPERTIES COMPILE_OPTIONS "${options}")
    endif()
endmacro()

# VESK_SANITIZE instruments every target: a host that loads an instrumented plug-in needs the same
# sanitizer as the plug-in.

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
    add_compile_options("-fsanitize=${VESK_SANITIZE}" -fno-omit-frame-pointer -O1 -g1)
    add_link_options("-fsanitize=${VESK_SANITIZE}")
    if(VESK_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()

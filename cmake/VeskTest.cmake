# vesk_add_test(NAME name SOURCES file... LIBRARIES target...
#               [RESOURCE_LOCK lock...] [LABELS label...] [RUN_SERIAL] [NO_MAIN])
#
# Builds the GoogleTest executable `name` and registers each of its tests with ctest as
# "name.Suite.Test".
#
# RESOURCE_LOCK  Tests that share a lock never run at the same time. "vesk-device" is the lock of
#                every test that needs TCP port 5002 or the System V key 1234.
# LABELS         "threaded" marks tests that are worth running under the thread sanitizer.
#                The target vesk_threaded_tests builds them.
# RUN_SERIAL     No other test runs meanwhile: for those that a busy machine would let fail.
# NO_MAIN        The sources, or a library, bring their own main(); otherwise GoogleMock's is used.
function(vesk_add_test)
    cmake_parse_arguments(PARSE_ARGV 0 TEST "NO_MAIN;RUN_SERIAL" "NAME" "SOURCES;LIBRARIES;RESOURCE_LOCK;LABELS")
    if(NOT TEST_NAME OR NOT TEST_SOURCES OR TEST_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "vesk_add_test: NAME and SOURCES are needed; "
                            "not understood: \"${TEST_UNPARSED_ARGUMENTS}\"")
    endif()

    add_executable(${TEST_NAME} ${TEST_SOURCES})
    target_link_libraries(${TEST_NAME} PRIVATE ${TEST_LIBRARIES} GTest::gmock GTest::gtest)
    if(NOT TEST_NO_MAIN)
        target_link_libraries(${TEST_NAME} PRIVATE GTest::gmock_main)
    endif()

    if("threaded" IN_LIST TEST_LABELS)
        if(NOT TARGET vesk_threaded_tests)
            add_custom_target(vesk_threaded_tests)
        endif()
        add_dependencies(vesk_threaded_tests ${TEST_NAME})
    endif()

    gtest_discover_tests(${TEST_NAME}
        TEST_PREFIX "${TEST_NAME}."
        DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT 120
    )

    # gtest_discover_tests cannot pass a property that is a list, so ctest sets these itself once it
    # has found the tests.
    set(properties "")
    if(TEST_LABELS)
        string(APPEND properties " LABELS \"${TEST_LABELS}\"")
    endif()
    if(TEST_RESOURCE_LOCK)
        string(APPEND properties " RESOURCE_LOCK \"${TEST_RESOURCE_LOCK}\"")
    endif()
    if(TEST_RUN_SERIAL)
        string(APPEND properties " RUN_SERIAL TRUE")
    endif()
    if(properties)
        set(script "${CMAKE_CURRENT_BINARY_DIR}/${TEST_NAME}_properties.cmake")
        file(WRITE "${script}"
            "if(${TEST_NAME}_TESTS)\n"
            "    set_tests_properties(\${${TEST_NAME}_TESTS} PROPERTIES${properties})\n"
            "endif()\n"
        )
        set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${script}")
    endif()
endfunction()

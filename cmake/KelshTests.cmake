include(GoogleTest)

# Where a test finds the tree and the programs. In a header, and not on every command line, so that a
# compiler cache serves checkouts in several places.
set(KELSH_TEST_PATHS_DIR ${PROJECT_BINARY_DIR}/tests/generated)
file(CONFIGURE OUTPUT ${KELSH_TEST_PATHS_DIR}/TestPaths.h CONTENT "#pragma once

#define KELSH_SOURCE_DIR \"${PROJECT_SOURCE_DIR}\"
#define KELSH_BINARY_DIR \"${PROJECT_BINARY_DIR}\"
" @ONLY)

# kelsh_add_test_program(NAME LABEL label [TIMEOUT seconds] [RESOURCE_LOCK name] SOURCES ... LIBRARIES ...)
# One GoogleTest program; each of its cases becomes a ctest case with the label and time limit given.
# RESOURCE_LOCK keeps cases that share an address or a file from running side by side.
function(kelsh_add_test_program name)
    cmake_parse_arguments(ARG "" "LABEL;TIMEOUT;RESOURCE_LOCK" "SOURCES;LIBRARIES" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE
        kelsh_test_support ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main kelsh_flags)
    if(KELSH_SANITIZE)
        # Optimised test code finds nothing more and takes three times as long to build.
        set_source_files_properties(${ARG_SOURCES} PROPERTIES COMPILE_OPTIONS -O0)
    endif()
    set(properties LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT})
    if(ARG_RESOURCE_LOCK)
        list(APPEND properties RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
    endif()
    if(KELSH_SANITIZE AND ARG_LABEL STREQUAL "unit")
        # Starting a program under a sanitizer costs more than most unit tests: one process for all.
        add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
        list(TRANSFORM properties REPLACE "^${ARG_TIMEOUT}$" "600")
        set_tests_properties(${name} PROPERTIES ${properties})
    else()
        gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
            PROPERTIES ${properties})
    endif()
endfunction()

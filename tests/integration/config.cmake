kelsh_add_test_program(integration_config LABEL integration
    SOURCES
        NodeConfigAgentsTest.cpp
    LIBRARIES kelsh_core)

# The three readers against an independent reading of the same generated files.
add_executable(config_dump ConfigDump.cpp)
target_link_libraries(config_dump PRIVATE kelsh_core kelsh_flags)
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_test(NAME ConfigDifferential
    COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/config_differential.py
            --program $<TARGET_FILE:config_dump> --samples ${PROJECT_SOURCE_DIR}/tests/data/config)
set_tests_properties(ConfigDifferential PROPERTIES LABELS integration TIMEOUT 120)

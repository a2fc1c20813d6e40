kelsh_add_test_program(unit_tools LABEL unit
    SOURCES
        KelpackTest.cpp
        ToolPackageTest.cpp
    LIBRARIES kelsh_runtime)
add_dependencies(unit_tools kelpack)

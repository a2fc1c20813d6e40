kelsh_add_test_program(unit_tools LABEL unit
    SOURCES
    LIBRARIES kelsh_runtime)

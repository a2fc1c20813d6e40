kelsh_add_test_program(unit_runtime LABEL unit
    SOURCES
    LIBRARIES kelsh_core)

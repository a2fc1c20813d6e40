kelsh_add_test_program(unit_sets LABEL unit
    SOURCES
    LIBRARIES kelsh_core)

kelsh_add_test_program(unit_model LABEL unit
    SOURCES
    LIBRARIES kelsh_core)

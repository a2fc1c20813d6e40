kelsh_add_test_program(unit_shell LABEL unit
    SOURCES
    LIBRARIES kelsh_core)

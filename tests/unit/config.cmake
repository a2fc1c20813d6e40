kelsh_add_test_program(unit_config LABEL unit
    SOURCES
    LIBRARIES kelsh_core)

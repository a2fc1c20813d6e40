kelsh_add_test_program(unit_editor LABEL unit
    SOURCES
    LIBRARIES kelsh_core)

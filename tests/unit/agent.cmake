kelsh_add_test_program(unit_agent LABEL unit
    SOURCES
    LIBRARIES kelnode_core)

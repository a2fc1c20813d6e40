kelsh_add_test_program(integration_agent LABEL integration
    SOURCES
    LIBRARIES kelsh_core)

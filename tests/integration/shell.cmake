kelsh_add_test_program(integration_shell LABEL integration
    SOURCES
    LIBRARIES kelsh_core)

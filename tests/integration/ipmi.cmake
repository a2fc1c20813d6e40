kelsh_add_test_program(integration_ipmi LABEL integration
    SOURCES
    LIBRARIES kelsh_core)

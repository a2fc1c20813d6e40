kelsh_add_test_program(integration_files LABEL integration
    SOURCES
    LIBRARIES kelsh_core)

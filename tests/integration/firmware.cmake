kelsh_add_test_program(integration_firmware LABEL integration
    SOURCES
    LIBRARIES kelsh_core)

kelsh_add_test_program(integration_config LABEL integration
    SOURCES
        NodeConfigAgentsTest.cpp
    LIBRARIES kelsh_core)

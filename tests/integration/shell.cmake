kelsh_add_test_program(integration_shell LABEL integration
    SOURCES
        ShellClusterTest.cpp
    LIBRARIES kelsh_runtime util)
add_dependencies(integration_shell kelsh_launcher kelnode kelpack)

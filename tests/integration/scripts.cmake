kelsh_add_test_program(integration_scripts LABEL integration
    SOURCES
        KelshPkiTest.cpp
        LocalClusterTest.cpp
    LIBRARIES kelsh_runtime)
add_dependencies(integration_scripts kelnode kelpack)

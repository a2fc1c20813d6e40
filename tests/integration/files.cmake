kelsh_add_test_program(integration_files LABEL integration TIMEOUT 300
    SOURCES
        AgentFilesTest.cpp
        AgentToolsTest.cpp
    LIBRARIES kelnode_core)
if(TARGET integration_files)
    add_dependencies(integration_files kelnode)
endif()

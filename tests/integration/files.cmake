kelsh_add_test_program(integration_files LABEL integration TIMEOUT 600
    SOURCES
        AgentFilesTest.cpp
        AgentToolsTest.cpp
        FileClusterTest.cpp
        FileFaultsTest.cpp
    LIBRARIES kelnode_core)
if(TARGET integration_files)
    add_dependencies(integration_files kelnode kelsh_launcher kelpack)
endif()

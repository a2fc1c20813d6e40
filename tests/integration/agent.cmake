kelsh_add_test_program(integration_agent LABEL integration
    SOURCES
        AgentExecTest.cpp
    LIBRARIES kelnode_core)
if(TARGET integration_agent)
    add_dependencies(integration_agent kelnode)
endif()

kelsh_add_test_program(integration_agent LABEL integration
    SOURCES
        AgentAuditTest.cpp
        AgentAuthorizationTest.cpp
        AgentCertificatesTest.cpp
        AgentExecTest.cpp
        AgentFirmwareTest.cpp
        AgentJobEndTest.cpp
        AgentListenerTest.cpp
        AgentNetworkSideTest.cpp
        AgentProtocolTest.cpp
        AgentReuseTest.cpp
    LIBRARIES kelnode_core)
if(TARGET integration_agent)
    # A job that does not want to be ended.
    add_executable(escapee escapee.cpp)
    target_link_libraries(escapee PRIVATE kelsh_flags Threads::Threads)
    add_dependencies(integration_agent kelnode escapee)
endif()

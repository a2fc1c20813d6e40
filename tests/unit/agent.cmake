kelsh_add_test_program(unit_agent LABEL unit
    SOURCES
        AgentConfigTest.cpp
        AgentLogTest.cpp
        AuditLogTest.cpp
        AuthorizationTest.cpp
        HandshakeWitnessTest.cpp
        ListeningSocketTest.cpp
        NetworkInterfaceTest.cpp
        ProcessTreeTest.cpp
        RunDirectoryTest.cpp
        SandboxTest.cpp
        SecretMaskTest.cpp
        SessionTableTest.cpp
        TlsRehearsalTest.cpp
        WaitingRoomTest.cpp
    LIBRARIES kelnode_core)

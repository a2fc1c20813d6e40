kelsh_add_test_program(unit_agent LABEL unit
    SOURCES
        AgentConfigTest.cpp
        AgentLogTest.cpp
        NetworkInterfaceTest.cpp
        ProcessTreeTest.cpp
        RunDirectoryTest.cpp
        SessionTableTest.cpp
    LIBRARIES kelnode_core)

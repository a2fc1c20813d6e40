kelsh_add_test_program(unit_ipmi LABEL unit
    SOURCES
        CShellCommandSet_HALOTest.cpp
        CShellCommandSet_IPMIKCSTest.cpp
        CShellCommandSet_IPMITest.cpp
        CShellCommandSet_MemTest.cpp
        CShellCommandSet_NodeTest.cpp
        CShellCommandSet_ipmifwTest.cpp
        IpmiDeviceTypeTest.cpp
        # In place of the real client of the node agent, which needs a network.
        ../support/ScriptedAgent.cpp
    LIBRARIES kelsh_core kelsh_test_support)

kelsh_add_test_program(unit_sets LABEL unit
    SOURCES
        CNodeSessionTest.cpp
        CShellCommandSet_BIOSFWTest.cpp
        CShellCommandSet_BasicTest.cpp
        CShellCommandSet_FlashBIOSTest.cpp
        CommandTableTest.cpp
        ConsoleTest.cpp
        # In place of the real client of the node agent, which needs a network.
        ../support/ScriptedAgent.cpp
    LIBRARIES kelsh_core kelsh_test_support)

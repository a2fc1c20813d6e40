kelsh_add_test_program(unit_model LABEL unit
    SOURCES
        CCommandDispatcherTest.cpp
        CCommandOptionTest.cpp
        CConfiguredCommandSetTest.cpp
        CShellCommandSetExecuteTest.cpp
        CShellCommandSetTest.cpp
        CShellCommandTest.cpp
        CSimpleOptTemplTest.cpp
        CmdStrWithOptionTest.cpp
        ConfigErrorCollectorTest.cpp
        ConfigErrorTest.cpp
        KelshEnumTest.cpp
        SourceTreeTest.cpp
        # In place of the real client to the agent, which needs a network.
        ../support/ScriptedSSLClient.cpp
    LIBRARIES kelsh_core)

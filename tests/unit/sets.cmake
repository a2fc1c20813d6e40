kelsh_add_test_program(unit_sets LABEL unit
    SOURCES
        CNodeSessionTest.cpp
        CShellCommandSet_BIOSFWTest.cpp
        CShellCommandSet_BasicTest.cpp
        CShellCommandSet_FlashBIOSTest.cpp
        CommandTableTest.cpp
        ConsoleTest.cpp
    LIBRARIES kelsh_core kelsh_test_support)

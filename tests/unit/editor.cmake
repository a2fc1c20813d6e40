kelsh_add_test_program(unit_editor LABEL unit
    SOURCES
        AbstractCommandLineRetrieverTest.cpp
        AutoHistoryCommandLineRetrieverTest.cpp
        CCmdHistoryTest.cpp
        EditorScreenTest.cpp
        TerminalTest.cpp
    LIBRARIES kelsh_core vterm util)

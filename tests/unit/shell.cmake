kelsh_add_test_program(unit_shell LABEL unit
    SOURCES
        CCommandExecutionContextTest.cpp
        CShellExecuteTest.cpp
        CShellInteractiveTest.cpp
        CShellTest.cpp
        CThreadWrapperOfCommandTest.cpp
        CommandSequenceTest.cpp
        OutputFilterTest.cpp
        PipedLineTest.cpp
        ResultMemoryTest.cpp
        ShellLoggingTest.cpp
    LIBRARIES kelsh_core util)

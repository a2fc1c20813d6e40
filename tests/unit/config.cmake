kelsh_add_test_program(unit_config LABEL unit
    SOURCES
        CNodeGroupTest.cpp
        CNodeTest.cpp
        CSSLConfigTest.cpp
        CShellConfigReaderCmdTest.cpp
        CShellConfigReaderTest.cpp
        CShellExecutionContextAutoCompleteAdapterTest.cpp
        CShellExecutionContextTest.cpp
        CSystemEnvironmentTest.cpp
        NodeAgentQueryTest.cpp
        NodeConfigFileTest.cpp
        NodeConfigWriterTest.cpp
    LIBRARIES kelsh_core)

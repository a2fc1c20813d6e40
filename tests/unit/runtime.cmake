kelsh_add_test_program(unit_runtime LABEL unit
    SOURCES
        CResultTest.cpp
        CUtilTest.cpp
        CVersionConfigTest.cpp
        ChildProcessTest.cpp
        ConfigLineReaderTest.cpp
        ExceptionTest.cpp
        ProtocolTest.cpp
        StopWatchTest.cpp
    LIBRARIES kelsh_runtime)

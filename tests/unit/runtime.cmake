kelsh_add_test_program(unit_runtime LABEL unit
    SOURCES
        CResultTest.cpp
        CUtilTest.cpp
        CVersionConfigTest.cpp
        CertificateExpiryTest.cpp
        ChildProcessTest.cpp
        ConfigLineReaderTest.cpp
        ConnectGateTest.cpp
        ConnectionPoolTest.cpp
        ExceptionTest.cpp
        FileReplacementTest.cpp
        FileSourceTest.cpp
        FileTransferTest.cpp
        NodeResultTest.cpp
        ParkedDialsTest.cpp
        ProtocolTest.cpp
        SSLClientCertificateTest.cpp
        SSLClientTest.cpp
        SharedDigestTest.cpp
        SilentPeersTest.cpp
        StopWatchTest.cpp
        TlsChannelTest.cpp
    LIBRARIES kelsh_runtime)

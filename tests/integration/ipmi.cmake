# The simulated controllers hold UDP port 623 of fixed loopback addresses.
kelsh_add_test_program(integration_ipmi LABEL integration RESOURCE_LOCK bmc
    SOURCES
        IpmiOverLanTest.cpp
    LIBRARIES kelsh_core kelsh_test_support)

kelsh_add_test_program(integration_bmc LABEL integration
    SOURCES
        BmcOnNodeTest.cpp
    LIBRARIES kelsh_core kelsh_test_support)

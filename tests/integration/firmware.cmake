kelsh_add_test_program(integration_firmware LABEL integration
    SOURCES
        FirmwareMasterTest.cpp
        FirmwareOnManyNodesTest.cpp
        R2FirmwareTest.cpp
        R3FirmwareTest.cpp
    LIBRARIES kelsh_core kelsh_test_support)
if(TARGET integration_firmware)
    add_dependencies(integration_firmware kelnode kelsh_launcher)
endif()

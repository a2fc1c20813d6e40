kelsh_add_test_program(unit_tools LABEL unit
    SOURCES
        KelpackTest.cpp
        LauncherTest.cpp
        KelshLintTest.cpp
        ManualPageTest.cpp
        ShellCompletionTest.cpp
        ToolPackageTest.cpp
    LIBRARIES kelsh_runtime)
add_dependencies(unit_tools kelpack kelnode kelsh_launcher kelsh-lint)

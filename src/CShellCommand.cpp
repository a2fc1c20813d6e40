// CShellCommand

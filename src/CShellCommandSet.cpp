// CShellCommandSet

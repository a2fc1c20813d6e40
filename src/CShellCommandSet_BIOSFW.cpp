// CShellCommandSet_BIOSFW

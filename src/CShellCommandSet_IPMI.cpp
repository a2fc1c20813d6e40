// CShellCommandSet_IPMI

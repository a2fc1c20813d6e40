// CShellCommandSet_IPMIKCS

// CShellCommandSet_HALO

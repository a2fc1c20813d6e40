// CShellCommandSet_Mem

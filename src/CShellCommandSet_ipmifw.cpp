// CShellCommandSet_ipmifw

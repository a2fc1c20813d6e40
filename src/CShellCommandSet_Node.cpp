// CShellCommandSet_Node

// CShellCommandSet_Basic

// CShell

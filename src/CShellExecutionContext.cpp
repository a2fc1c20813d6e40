// CShellExecutionContext

// CCommandExecutionContext

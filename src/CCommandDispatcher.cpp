// CCommandDispatcher

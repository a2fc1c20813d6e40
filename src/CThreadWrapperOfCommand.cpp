// CThreadWrapperOfCommand

// AutoHistoryCommandLineRetriever

// AbstractCommandLineRetriever

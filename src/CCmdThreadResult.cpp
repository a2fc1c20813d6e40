// CCmdThreadResult

// CConfiguredCommandSet

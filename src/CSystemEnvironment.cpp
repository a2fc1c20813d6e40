// CSystemEnvironment

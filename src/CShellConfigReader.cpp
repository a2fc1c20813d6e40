// CShellConfigReader

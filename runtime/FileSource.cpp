// FileSource

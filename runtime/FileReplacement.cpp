// FileReplacement

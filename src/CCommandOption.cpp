// CCommandOption

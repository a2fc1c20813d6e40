// CNodeSession

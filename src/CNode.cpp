// CNode

// CNodeGroup

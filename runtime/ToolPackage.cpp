// ToolPackage

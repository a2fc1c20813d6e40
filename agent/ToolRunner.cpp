// ToolRunner

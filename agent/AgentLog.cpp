// AgentLog

// AgentConfig

// Agent

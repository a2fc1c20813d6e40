// ConfigError

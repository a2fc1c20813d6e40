// ConfigErrorCollector

// CSSLConfig

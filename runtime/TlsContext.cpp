// TlsContext

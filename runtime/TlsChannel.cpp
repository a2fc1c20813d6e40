// TlsChannel

// TlsFault

// SSLClient

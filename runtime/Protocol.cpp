// Protocol

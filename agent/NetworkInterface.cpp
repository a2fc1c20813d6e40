// NetworkInterface

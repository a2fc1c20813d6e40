// Listener

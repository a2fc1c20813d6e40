// Session

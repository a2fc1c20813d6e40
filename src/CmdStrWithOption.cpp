// CmdStrWithOption

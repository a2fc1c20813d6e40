// FileTransfer

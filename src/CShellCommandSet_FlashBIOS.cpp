// CShellCommandSet_FlashBIOS

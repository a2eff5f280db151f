"""What tvhw-log is made of: the forms of log lines, the library's messages, the lives that they tell
of, the verdicts, and the three ways to show them."""

"""What the system tests run on: a sandbox, the real executable in it, and collectors."""

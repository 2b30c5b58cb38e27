# One line a test program: its name and its labels.

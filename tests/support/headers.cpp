// The headers that most tests read, compiled once for all of them.

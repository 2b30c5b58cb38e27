# One line a benchmark.

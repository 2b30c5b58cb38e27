# One line a benchmark.
kestova_bench(storage_write)
kestova_bench(storage_open)
kestova_bench(replay_pace)
kestova_bench(storage_start)
kestova_bench(package)
kestova_bench(multicast)

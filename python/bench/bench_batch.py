"""Per-query cost of Domain.beliefs_batch against the same queries in a loop from
C (orvel_c_queries), its scaling with threads, and Dask on a local cluster.

    PYTHONPATH=build/python /usr/bin/python3 python/bench/bench_batch.py --build build

Each query: the findings of one row (cases drawn from the network, about four
in five entries blanked), sum propagation, every belief of every chance node
read. Times are medians over --runs.
"""

import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np

import orvel

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")


def median_time(function, runs):
    times = []
    for _ in range(runs):
        start = time.perf_counter()
        function()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def evidence(domain, rows, seed=1):
    cases = domain.simulate(rows, seed=seed).astype(object)
    return cases.mask(np.random.default_rng(seed).random(cases.shape) < 0.8)


def write_data(frame, path):
    with open(path, "w") as f:
        f.write(", ".join(frame.columns) + "\n")
        for row in frame.itertuples(index=False):
            f.write(", ".join('"%s"' % v if isinstance(v, str) else "*" for v in row) + "\n")


def c_loop(build, net, frame, runs, names):
    with tempfile.TemporaryDirectory() as tmp:
        data = os.path.join(tmp, "cases.dat")
        write_data(frame, data)
        out = subprocess.run(
            [os.path.join(build, "python", "orvel_c_queries"), net, data, str(runs), *names],
            capture_output=True, text=True, check=True,
        )
    return float(out.stdout) * 1e-6


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=os.path.join(ROOT, "build"))
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--networks", default="alarm:2000,pigs:200")
    parser.add_argument("--threads", default="1,2,4")
    parser.add_argument("--dask", action="store_true", help="also time orvel.dask on a local cluster")
    args = parser.parse_args()
    print("cores: %d" % os.cpu_count())
    for item in args.networks.split(","):
        name, rows = item.split(":")
        net = os.path.join(ROOT, "networks", name + ".net")
        d = orvel.load(net)
        d.compile()
        names = d._chance_names()
        frame = evidence(d, int(rows))
        c = c_loop(args.build, net, frame, args.runs, names)
        one = median_time(lambda: d.beliefs_batch(frame, threads=1), args.runs) / len(frame)
        print("%s: %d queries; C loop %.1f us/query; beliefs_batch(threads=1) %.1f us/query (%.2fx C)"
              % (name, len(frame), 1e6 * c, 1e6 * one, one / c))
        for threads in [int(t) for t in args.threads.split(",")]:
            t = median_time(lambda: d.beliefs_batch(frame, threads=threads), args.runs) / len(frame)
            print("  threads=%d: %.1f us/query, speed-up %.2f" % (threads, 1e6 * t, one / t))
        if args.dask:
            dask_run(net, frame, args.runs)
    return 0


def dask_run(net, frame, runs):
    import dask.dataframe as dd
    import distributed

    import orvel.dask

    workers = min(os.cpu_count(), 4)
    with distributed.LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, distributed.Client(cluster):
        ddf = dd.from_pandas(frame, npartitions=2 * workers).persist()
        orvel.dask.beliefs(ddf, net).compute()  # each worker reads and compiles the network
        t = median_time(lambda: orvel.dask.beliefs(ddf, net).compute(), runs)
    d = orvel.load(net)
    d.compile()
    threaded = median_time(lambda: d.beliefs_batch(frame, threads=workers), runs)
    print("  dask, %d worker processes: %.0f queries/s; beliefs_batch(threads=%d): %.0f queries/s"
          % (workers, len(frame) / t, workers, len(frame) / threaded))


if __name__ == "__main__":
    sys.exit(main())

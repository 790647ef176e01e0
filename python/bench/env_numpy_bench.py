"""Evaluating an envelope at a million times from numpy, against the same loop in C.

Runs the two alternately, several rounds, and prints the median nanoseconds per evaluation of
each and their ratio. Usage: python3 env_numpy_bench.py PATH_TO_vexor_python_env_loop [rounds]
(with the built package on PYTHONPATH)."""
import statistics
import subprocess
import sys
import time

import numpy as np

import vexor

COUNT = 1_000_000


def python_round(env, times):
    env(times)  # warm, as the C loop is
    start = time.perf_counter()
    env(times)
    return (time.perf_counter() - start) * 1e9 / COUNT


def main():
    loop = sys.argv[1]
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 7
    env = vexor.Envelope.from_keys([(0.0, 0.0), (0.25, 2.0), (0.5, 0.0)], post="repeat")
    times = np.linspace(0.0, 10.0, COUNT)
    python_ns, c_ns = [], []
    for _ in range(rounds):
        python_ns.append(python_round(env, times))
        out = subprocess.run([loop, str(COUNT), "3"], check=True, capture_output=True, text=True)
        c_ns.append(float(out.stdout.split()[0]))
    p, c = statistics.median(python_ns), statistics.median(c_ns)
    print(f"envelope at {COUNT} times: numpy through vexor {p:.2f} ns, C loop {c:.2f} ns, "
          f"ratio {p / c:.2f} (target at most 1.5)")


if __name__ == "__main__":
    main()

"""Python against C++, measured in one run on the same machine:

* one parameter get and set (FG_TIMEOUT) from Python, by name and by id,
  against the typed C++ call by id; the figure is the time Python adds;
* a loop receiving 1024 x 1024 24-bit frames as numpy arrays against the
  C++ loop receiving the same frames (each waits for a frame and copies it).

    PYTHONPATH=build/default/python /usr/bin/python3 bench/python/python_bench.py build/default
"""

from __future__ import annotations

import argparse
import os
import subprocess
import sys
import time

import pelagon

FRAME_SETTINGS = {
    "FG_CAMERASIMULATOR_ENABLE": "FG_CAMERASIMULATOR",
    "FG_CAMERASIMULATOR_WIDTH": 1024,
    "FG_CAMERASIMULATOR_HEIGHT": 1024,
    "FG_WIDTH": 1024,
    "FG_HEIGHT": 1024,
    "FG_FORMAT": "FG_COL24",
}


def cpp(baseline: str, applet: str, *args: str) -> dict[str, float]:
    out = subprocess.run([baseline, applet, *args], check=True, capture_output=True, text=True).stdout
    return {k: float(v) for k, v in (line.split() for line in out.splitlines())}


def per_call_ns(call, iterations: int) -> float:
    start = time.perf_counter()
    for _ in range(iterations):
        call()
    return (time.perf_counter() - start) * 1e9 / iterations


def python_params(g: pelagon.Grabber, iterations: int) -> dict[str, float]:
    ident = g.id("FG_TIMEOUT")
    get, set_ = g.get, g.set
    values = [1000, 1001] * (iterations // 2)
    it = iter(values * 2)
    return {
        "get by name": per_call_ns(lambda: get("FG_TIMEOUT"), iterations),
        "get by id": per_call_ns(lambda: get(ident), iterations),
        "set by name": per_call_ns(lambda: set_("FG_TIMEOUT", next(it)), iterations),
        "set by id": per_call_ns(lambda: set_(ident, next(it)), iterations),
        # What the lambda and the iterator cost on their own, taken off above.
        "loop": per_call_ns(lambda: next(it, 0), iterations),
    }


def python_frames(g: pelagon.Grabber, count: int, buffers: int) -> float:
    g.apply(FRAME_SETTINGS)
    start = time.perf_counter()
    checksum = 0
    with g.acquire(buffers=buffers, count=count) as frames:
        for frame in frames:
            checksum += int(frame.array[frame.height // 2, frame.width // 2, 0])
    return count / (time.perf_counter() - start)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", help="the build folder (its bin/pelagon_cpp_baseline and lib/libPelagon.so)")
    parser.add_argument("--iterations", type=int, default=200_000)
    parser.add_argument("--frames", type=int, default=300)
    parser.add_argument("--buffers", type=int, default=8)
    args = parser.parse_args()
    baseline = os.path.join(args.build, "bin", "pelagon_cpp_baseline")
    applet = os.path.join(args.build, "lib", "libPelagon.so")
    if not os.path.exists(baseline):
        print(f"{baseline} is missing: build it (cmake --build {args.build} --target pelagon_cpp_baseline)",
              file=sys.stderr)
        return 2

    c = cpp(baseline, applet, "params", str(args.iterations))
    with pelagon.Grabber(applet) as g:
        p = python_params(g, args.iterations)
    print(f"parameter calls, {args.iterations} each (ns per call; added = Python - C++ typed call by id)")
    print(f"  C++ get by id      {c['get_ns']:8.1f}")
    print(f"  C++ set by id      {c['set_ns']:8.1f}")
    for name, key in (("get by name", "get_ns"), ("get by id", "get_ns"), ("set by name", "set_ns"),
                      ("set by id", "set_ns")):
        py = p[name] - p["loop"]
        print(f"  Python {name:11} {py:8.1f}   added {py - c[key]:7.1f} ns   ratio {py / c[key]:5.1f}x")

    # The simulator as fast as it goes at this size, so that the loops, not
    # the frame rate, set the pace.
    with pelagon.Grabber(applet) as g:
        g.apply(FRAME_SETTINGS)
        FRAME_SETTINGS["FG_CAMERASIMULATOR_FRAMERATE"] = g.parameter("FG_CAMERASIMULATOR_FRAMERATE").maximum
    settings = [f"{k}={v!r}" if isinstance(v, float) else f"{k}={v}" for k, v in FRAME_SETTINGS.items()]
    c_fps = cpp(baseline, applet, "frames", str(args.frames), str(args.buffers), *settings)["fps"]
    with pelagon.Grabber(applet) as g:
        py_fps = python_frames(g, args.frames, args.buffers)
    print(f"1024 x 1024 24-bit frames, {args.frames} with {args.buffers} buffers (frames per second)")
    print(f"  C++ loop           {c_fps:8.1f}")
    print(f"  Python loop        {py_fps:8.1f}   ratio {py_fps / c_fps:5.2f}x")
    return 0


if __name__ == "__main__":
    sys.exit(main())

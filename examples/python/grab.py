"""Frames as numpy arrays: grab from the camera simulator with a white balance
and show it in the per-channel means, then follow a short live acquisition.

    PYTHONPATH=build/default/python /usr/bin/python3 examples/python/grab.py
"""

import numpy as np

import pelagon

with pelagon.Grabber() as g:
    g.apply({
        "FG_CAMERASIMULATOR_ENABLE": "FG_CAMERASIMULATOR",
        "FG_CAMERASIMULATOR_WIDTH": 640, "FG_CAMERASIMULATOR_HEIGHT": 480,
        "FG_WIDTH": 640, "FG_HEIGHT": 480,
        "FG_FORMAT": "FG_COL24",
        "FG_CAMERASIMULATOR_FRAMERATE": 50,
    })
    for red, blue in ((1.0, 1.0), (1.4, 0.6)):
        g.apply({"FG_SCALINGFACTOR_RED": red, "FG_SCALINGFACTOR_BLUE": blue})
        frame = g.snapshot()
        r, gr, b = frame.array.reshape(-1, 3).mean(axis=0)
        print(f"white balance red {red}, blue {blue}: mean R {r:6.1f}  G {gr:6.1f}  B {b:6.1f}")

    # Ten frames live; the loop stops the acquisition however it ends.
    with g.acquire(buffers=4, count=10) as frames:
        for frame in frames:
            a = np.asarray(frame)
            print(f"frame {frame.number:2} at {frame.timestamp:.3f}: {a.shape} {a.dtype} max {a.max()}")
        print(f"passed over {frames.skipped}, lost on the board {frames.lost}")

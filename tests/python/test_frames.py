"""Frames from Python: the same samples as the C++ path, acquisitions that
stop whatever ends them, software pulses, time-outs and Ctrl-C."""

import os
import signal
import subprocess
import sys
import textwrap
import threading
import time

import numpy as np
import pytest

import pelagon
from conftest import SIMULATOR

# A still picture: with the roll on, frame 1 shows whatever moment the
# simulator had reached, which differs between two processes.
STILL = dict(SIMULATOR, FG_CAMERASIMULATOR_ROLL="FG_OFF")


def unpack30(raw, samples):
    """The 30-bit bit stream as 10-bit values, written independently of the package."""
    bits = np.unpackbits(np.frombuffer(raw, np.uint8), bitorder="little")[: samples * 10]
    return (bits.reshape(-1, 10).astype(np.uint16) << np.arange(10, dtype=np.uint16)).sum(axis=1, dtype=np.uint16)


@pytest.mark.parametrize("settings", [
    {"FG_FORMAT": "FG_COL24"},
    {"FG_FORMAT": "FG_COL30"},
    {"FG_FORMAT": "FG_COL48", "FG_BITALIGNMENT": "FG_RIGHT_ALIGNED"},
    {"FG_FORMAT": "FG_COL48", "FG_BITALIGNMENT": "FG_LEFT_ALIGNED"},
    {"FG_FORMAT": "FG_COL24", "FG_SCALINGFACTOR_RED": 1.5, "FG_SCALINGFACTOR_BLUE": 0.5},
    {"FG_FORMAT": "FG_COL30", "FG_LUT_TYPE": "LUT_TYPE_PROCESSING", "FG_PROCESSING_GAMMA": 2.2},
    {"FG_FORMAT": "FG_COL48", "FG_WIDTH": 32, "FG_XOFFSET": 16, "FG_CAMERASIMULATOR_PATTERN": "FG_HORIZONTAL"},
], ids=["24", "30", "48-right", "48-left", "24-white-balance", "30-gamma", "48-roi"])
def test_frames_hold_the_bytes_the_cpp_path_receives(simulator, reference_program, tmp_path, settings):
    simulator.apply(STILL)
    simulator.apply(settings)
    frames = simulator.grab(2)
    subprocess.run([reference_program, simulator.applet, str(tmp_path / "frame"), "2",
                    *(f"{k}={v}" for k, v in {**STILL, **settings}.items())], check=True)
    # The picture stands still, so every frame holds the same bytes: a loop
    # that a busy machine makes pass over a frame is compared all the same.
    raw = (tmp_path / "frame-1.raw").read_bytes()
    assert raw == (tmp_path / "frame-2.raw").read_bytes()
    for frame in frames:
        a = frame.array
        assert a.shape == (32, simulator["FG_WIDTH"], 3) and frame.format == simulator["FG_FORMAT"]
        if frame.format == "FG_COL30":
            assert a.dtype == np.uint16 and np.array_equal(a.reshape(-1), unpack30(raw, a.size))
            assert a.max() < 1024
        else:
            assert a.dtype == (np.uint8 if frame.format == "FG_COL24" else np.uint16)
            assert a.tobytes() == raw
    if settings.get("FG_BITALIGNMENT") == "FG_LEFT_ALIGNED":
        assert not (frames[0].array & 0xF).any()  # 12 bits in the top of each word
    assert [f.number for f in frames] == [1, 2] and frames[0].timestamp <= frames[1].timestamp


def test_software_pulses_each_give_one_frame(simulator):
    simulator.apply({"FG_CAMERASIMULATOR_TRIGGER_MODE": "RISING_EDGE_TRIGGERS_FRAME",
                     "FG_AREATRIGGERMODE": "ATM_SOFTWARE", "FG_TRIGGER_FRAMESPERSECOND": 100,
                     "FG_TRIGGERSTATE": "TS_ACTIVE"})
    with simulator.acquire(buffers=8, timeout=2) as acq:
        simulator.trigger(5)
        numbers = [next(acq).number for _ in range(5)]
        assert numbers == [1, 2, 3, 4, 5]
        with pytest.raises(pelagon.AcquisitionTimeout):  # no sixth pulse, no sixth frame
            simulator.wait_for_frame(6, 0.3)


def test_an_exception_in_the_loop_stops_the_acquisition_and_it_starts_again(simulator):
    with pytest.raises(ZeroDivisionError):
        with simulator.acquire() as frames:
            for frame in frames:
                1 / 0
    assert not simulator.acquiring
    frames = simulator.grab(3)
    assert [f.number for f in frames] == [1, 2, 3]


def test_a_slow_loop_sees_passed_over_frames_counted(simulator):
    with simulator.acquire(buffers=2, count=3) as acq:
        numbers = []
        for frame in acq:
            numbers.append(frame.number)
            time.sleep(0.05)  # 50 frames arrive meanwhile
        assert acq.skipped == numbers[-1] - 3 > 0 and acq.lost == 0
    assert numbers == sorted(set(numbers))


def test_a_time_out_is_a_timeout_error_and_a_wait_without_acquisition_fails_at_once(grabber):
    start = time.monotonic()
    with pytest.raises(TimeoutError) as e:
        with grabber.acquire(timeout=0.2) as frames:  # the camera port: no frame ever comes
            next(frames)
    assert isinstance(e.value, pelagon.AcquisitionTimeout) and e.value.code == -2120
    assert time.monotonic() - start < 2 and not grabber.acquiring
    with pytest.raises(pelagon.Error, match="stopped"):
        grabber.wait_for_frame(1, 10)


def test_a_wait_lets_other_threads_run_and_ends_when_one_closes_the_grabber(grabber):
    with grabber.acquire(timeout=30) as frames:
        threading.Timer(0.2, grabber.close).start()  # needs the GIL while the wait blocks
        start = time.monotonic()
        with pytest.raises(pelagon.ClosedError):
            next(frames)
        assert time.monotonic() - start < 1


CHILD = textwrap.dedent("""
    import sys, time, pelagon
    g = pelagon.Grabber()
    try:
        with g.acquire(timeout=30) as frames:   # the camera port never delivers
            print("waiting", flush=True)
            next(frames)
    except KeyboardInterrupt:
        t = time.monotonic()
        g.apply({"FG_CAMERASIMULATOR_ENABLE": "FG_CAMERASIMULATOR"})
        print("interrupted", g.acquiring, g.snapshot().number, flush=True)
""")


def test_ctrl_c_ends_a_blocking_wait_within_a_second_and_the_grabber_stays_usable():
    child = subprocess.Popen([sys.executable, "-c", CHILD], stdout=subprocess.PIPE, text=True, env=os.environ)
    try:
        assert child.stdout.readline().strip() == "waiting"
        time.sleep(0.2)
        start = time.monotonic()
        child.send_signal(signal.SIGINT)
        line = child.stdout.readline().strip()
        assert time.monotonic() - start < 1.0
        assert line == "interrupted False 1"
        assert child.wait(10) == 0
    finally:
        child.kill()

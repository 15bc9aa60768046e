"""Shared set-up of the Python package's tests: a fresh grabber per test and
a small, fast simulator (64 x 32 pixels at 1000 frames per second)."""

import os

import pytest

import pelagon

SIMULATOR = {
    "FG_CAMERASIMULATOR_ENABLE": "FG_CAMERASIMULATOR",
    "FG_CAMERASIMULATOR_WIDTH": 64,
    "FG_CAMERASIMULATOR_HEIGHT": 32,
    "FG_WIDTH": 64,
    "FG_HEIGHT": 32,
    "FG_CAMERASIMULATOR_FRAMERATE": 1000,
}


@pytest.fixture
def grabber():
    with pelagon.Grabber() as g:
        yield g


@pytest.fixture
def simulator(grabber):
    grabber.apply(SIMULATOR)
    return grabber


@pytest.fixture
def reference_program():
    path = os.environ.get("PELAGON_REFERENCE_FRAMES")
    if not path or not os.path.exists(path):
        pytest.skip("PELAGON_REFERENCE_FRAMES names no reference program (ctest sets it)")
    return path

"""Parameters from Python: list a group, set values by name (an enumeration by
its symbol, display name or number), see a refusal, save the configuration.

    PYTHONPATH=build/default/python /usr/bin/python3 examples/python/parameters.py [GROUP]
"""

import sys

import pelagon

group = sys.argv[1] if len(sys.argv) > 1 else "Camera Simulator"

with pelagon.Grabber() as g:
    print(f"{g.info()['applet']} {g.info()['version']} from {g.applet}")
    for p in g.parameters():
        if p.group.startswith(group):
            limits = f"{p.minimum} .. {p.maximum}" if p.minimum is not None else ", ".join(e.symbol for e in p.entries)
            print(f"  {p.name:40} {p.value!s:>22} {p.unit:8} {limits}")

    g["FG_FORMAT"] = "Color 48bit"           # the display name
    g.set("FG_BITALIGNMENT", 1)              # the number
    g.apply({"FG_WIDTH": 640, "FG_HEIGHT": 480, "FG_PROCESSING_GAMMA": 1.6})
    print("format", g["FG_FORMAT"], "aligned", g["FG_BITALIGNMENT"], "size", g["FG_WIDTH"], "x", g["FG_HEIGHT"])

    try:
        g["FG_WIDTH"] = 1000                 # not a multiple of 16
    except pelagon.RefusedValueError as e:
        print(f"refused ({e.code}): {e}")
    try:
        g["FG_WIDHT"] = 640
    except KeyError as e:
        print(f"unknown: {e}")

    g.save_config("example.mcf")
    print("saved example.mcf")

"""A configuration saved by one Python process and loaded by another gives
the same values."""

import json
import subprocess
import sys
import textwrap

import pelagon

SETTINGS = {"FG_WIDTH": 512, "FG_XOFFSET": 128, "FG_FORMAT": "FG_COL30", "FG_PROCESSING_GAMMA": 1.8,
            "FG_LUT_TYPE": "LUT_TYPE_PROCESSING", "FG_SCALINGFACTOR_RED": 1.25, "FG_TIMEOUT": 77}

SNAPSHOT = textwrap.dedent("""
    import json, sys, pelagon
    with pelagon.Grabber() as g:
        if sys.argv[1] == "save":
            g.apply(json.loads(sys.argv[3]))
            g.save_config(sys.argv[2])
        else:
            g.load_config(sys.argv[2])
        values = {p.name: p.value.tolist() if hasattr(p.value, "tolist") else p.value
                  for p in g.parameters() if p.writable}
        print(json.dumps(values))
""")


def run(*args):
    out = subprocess.run([sys.executable, "-c", SNAPSHOT, *args], check=True, capture_output=True, text=True)
    return json.loads(out.stdout)


def test_a_saved_configuration_loads_to_the_same_values_in_another_process(tmp_path):
    path = str(tmp_path / "settings.mcf")
    saved = run("save", path, json.dumps(SETTINGS))
    loaded = run("load", path)
    assert {k: saved[k] for k in SETTINGS} == SETTINGS
    assert loaded == saved
    with pelagon.Grabber() as fresh:  # and differs from the defaults
        assert fresh["FG_WIDTH"] != loaded["FG_WIDTH"]

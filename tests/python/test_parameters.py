"""Parameters from Python: types, enumerations, tables, refusals, and inputs
that must be refused without harm."""

import math

import numpy as np
import pytest

import pelagon

PY_TYPES = {"uint": int, "uint64": int, "double": float, "string": str, "enum": str,
            "uint_field": np.ndarray, "double_field": np.ndarray}


def test_every_published_value_reads_in_its_python_type(grabber):
    params = grabber.parameters()
    assert len(params) == grabber.info()["parameters"]
    seen = set()
    for p in params:
        if p.readable and p.value is not None:
            assert isinstance(p.value, PY_TYPES[p.type]), p
            seen.add(p.type)
        assert grabber.parameter(p.id) == p and grabber.name(p.id) == p.name and grabber.id(p.name) == p.id
    assert seen == set(PY_TYPES)
    table = grabber.get("FG_LUT_VALUE_RED")
    assert table.dtype == np.uint32 and table.shape == (4096,)
    assert grabber.get("FG_SYSTEMMONITOR_FPGA_DNA") > 2**32  # 64-bit values arrive whole


@pytest.mark.parametrize("name, value", [
    ("FG_TIMEOUT", 1234),                 # uint
    ("FG_PROCESSING_GAMMA", 1.5),         # double
    ("FG_LUT_SAVE_FILE", ""),             # string
    ("FG_WIDTH", np.int64(512)),          # numpy integers are integers
])
def test_values_written_read_back(grabber, name, value):
    grabber.set(name, value)
    assert grabber.get(name) == value and isinstance(grabber[name], type(grabber.parameter(name).value))
    grabber[name] = value
    assert grabber[name] == value


def test_enumerations_take_symbol_display_name_or_number_and_read_as_symbol(grabber):
    for value in ("FG_COL48", "Color 48bit", 6, "6"):
        grabber.set("FG_FORMAT", "FG_COL24")
        grabber.set("FG_FORMAT", value)
        assert grabber.get("FG_FORMAT") == "FG_COL48"
    fmt = grabber.parameter("FG_FORMAT")
    assert [(e.symbol, e.display_name, e.value) for e in fmt.entries] == [
        ("FG_COL24", "Color 24bit", 2), ("FG_COL30", "Color 30bit", 5), ("FG_COL48", "Color 48bit", 6)]
    with pytest.raises(pelagon.RefusedValueError) as e:
        grabber.set("FG_FORMAT", "FG_COL99")
    assert "FG_COL24" in str(e.value)


def test_refusal_is_a_value_error_with_the_applets_number_and_what_is_accepted(grabber):
    with pytest.raises(ValueError) as e:
        grabber.set("FG_WIDTH", 3)
    assert isinstance(e.value, pelagon.Error) and e.value.code == -6000
    assert e.value.meaning == pelagon.error_text(-6000) and "accepted now" in str(e.value)
    assert grabber.get("FG_WIDTH") == 1024


def test_unknown_names_and_ids_are_key_errors_with_suggestions(grabber):
    with pytest.raises(KeyError) as e:
        grabber.get("fg_widht")
    assert isinstance(e.value, pelagon.UnknownNameError) and e.value.suggestions == ["FG_WIDTH"]
    assert "FG_WIDTH" in str(e.value)
    for key in (987654321, 2**80, -1):
        with pytest.raises(pelagon.UnknownNameError):
            grabber.get(key)


@pytest.mark.parametrize("name, value, error", [
    ("FG_WIDTH", None, TypeError),
    ("FG_WIDTH", 512.0, TypeError),
    ("FG_WIDTH", 2**70, ValueError),
    ("FG_WIDTH", -16, ValueError),
    ("FG_WIDTH", "lots", ValueError),
    ("FG_PROCESSING_GAMMA", math.nan, ValueError),
    ("FG_PROCESSING_GAMMA", math.inf, ValueError),
    ("FG_PROCESSING_GAMMA", object(), TypeError),
    ("FG_LUT_SAVE_FILE", b"bytes", TypeError),
    ("FG_LUT_SAVE_FILE", "nul\0inside", ValueError),
    ("FG_FORMAT", 2.0, TypeError),
    ("FG_LUT_VALUE_RED", "table", TypeError),
    ([1], 1, TypeError),
    (True, 1, TypeError),
])
def test_bad_input_is_refused_and_leaves_the_grabber_working(grabber, name, value, error):
    with pytest.raises(error):
        grabber.set(name, value)
    assert grabber.get("FG_WIDTH") == 1024 and grabber.get("FG_PROCESSING_GAMMA") == 1.0


def test_lookup_tables_round_trip_as_arrays_and_files(grabber, tmp_path):
    rng = np.random.default_rng(7)
    tables = rng.integers(0, 4096, size=(3, 4096), dtype=np.uint32)
    grabber.lut = tables
    assert grabber.lut.dtype == np.uint32 and np.array_equal(grabber.lut, tables)
    grabber.save_lut(tmp_path / "tables.lut")
    grabber.lut = np.zeros((3, 4096), np.uint16)  # any unsigned integers that fit
    grabber.load_lut(tmp_path / "tables.lut")
    assert np.array_equal(grabber.lut, tables) and grabber.get("FG_LUT_TYPE") == "LUT_TYPE_CUSTOM"
    with pytest.raises(FileNotFoundError):
        grabber.load_lut(tmp_path / "missing.lut")


@pytest.mark.parametrize("tables, error", [
    (np.zeros((3, 4095), np.uint32), ValueError),
    (np.zeros((2, 4096), np.uint32), ValueError),
    (np.zeros(4096, np.uint32), ValueError),
    (np.zeros((3, 4096), np.float64), TypeError),
    (np.full((3, 4096), -1, np.int64), ValueError),
    (np.full((3, 4096), 2**40, np.uint64), ValueError),
    (np.full((3, 4096), 5000, np.uint32), ValueError),  # above the 12-bit range: the applet says no
    (None, TypeError),
])
def test_wrong_tables_are_refused_and_keep_the_old_ones(grabber, tables, error):
    before = grabber.lut
    with pytest.raises(error):
        grabber.lut = tables
    assert np.array_equal(grabber.lut, before)


def test_settings_from_a_dict_apply_in_order(grabber):
    # The offset is only allowed once the width leaves room for it.
    grabber.apply({"FG_WIDTH": 512, "FG_XOFFSET": 256})
    assert (grabber["FG_WIDTH"], grabber["FG_XOFFSET"]) == (512, 256)
    with pytest.raises(pelagon.RefusedValueError):
        grabber.apply({"FG_XOFFSET": 0, "FG_WIDTH": 1024, "FG_YOFFSET": 1 << 20})


def test_info_and_xml_describe_the_applet(grabber):
    info = grabber.info()
    assert info["applet"] and info["board_type"] > 0 and info["library"] == grabber.applet
    xml = grabber.xml()
    assert xml.lstrip().startswith("<?xml") and "Width" in xml


def test_a_closed_grabber_refuses_every_call(grabber):
    grabber.close()
    grabber.close()  # twice is fine
    assert grabber.closed and "closed" in repr(grabber)
    for call in (lambda: grabber.get("FG_WIDTH"), lambda: grabber.set("FG_WIDTH", 64), grabber.parameters,
                 grabber.info, grabber.snapshot, lambda: grabber.wait_for_frame(1, 0.1)):
        with pytest.raises(pelagon.ClosedError, match="closed"):
            call()
    grabber.stop()  # stopping is harmless


def test_a_missing_applet_is_a_clear_error(tmp_path):
    with pytest.raises(pelagon.Error, match="missing.so"):
        pelagon.Grabber(tmp_path / "missing.so")

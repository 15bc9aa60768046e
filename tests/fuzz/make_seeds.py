#!/usr/bin/env python3
"""Writes the hand-made seeds of the dispatch and XML targets.

Their inputs are decoded by FuzzCalls.h with LLVM's FuzzedDataProvider, which
takes the value bytes from the front of an input and the numbers (direction,
parameter, type code, DMA index, indices and counts) from its end, last byte
first. The encoder below mirrors that, so that each seed is a readable list of
calls. Run it after changing the decoding or the catalogue's order:
    python3 tests/fuzz/make_seeds.py
"""
import os
import re
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
CATALOGUE = os.path.join(HERE, "..", "..", "applet", "catalogue.def")

# Parameter rows in catalogue order: the index the decoder picks by.
ROWS = [m.group(2) for m in re.finditer(
    r"^\s*PELAGON_(PARAM|RUNTIME_PARAM)\((\w+),",
    open(CATALOGUE).read(), re.M)]

TYPES = {"INVALID": 0, "INT32": 1, "UINT32": 2, "INT64": 3, "UINT64": 4, "DOUBLE": 5, "CHAR_PTR": 6,
         "SIZE_T": 7, "ACCESS": 4096, "INT": 4098, "INT64REC": 4099, "DOUBLEREC": 4101,
         "COMPLEX": 8192, "AUTO": -1}
TYPE_ORDER = [0, 1, 2, 3, 4, 5, 6, 7, 4096, 4098, 4099, 4101, 8192, -1]


class Input:
    def __init__(self):
        self.front = bytearray()
        self.back = bytearray()  # in the order the decoder takes them

    def number(self, value, lo, hi):
        """A number in [lo, hi], taken from the end one byte per 8 bits of range."""
        span, offset, nbytes = hi - lo, value - lo, 0
        while nbytes < 8 and (span >> (8 * nbytes)) > 0:
            nbytes += 1
        for i in reversed(range(nbytes)):
            self.back.append((offset >> (8 * i)) & 0xFF)

    def u8(self, v): self.number(v, 0, 255)
    def i32(self, v): self.number(v, -2**31, 2**31 - 1)
    def u32(self, v): self.number(v, 0, 2**32 - 1)
    def bool(self, v): self.u8(1 if v else 0)
    def data(self, b): self.front += b

    def small(self, v):  # smallOrAny: small when it fits
        if 0 <= v <= 4200:
            self.bool(True)
            self.number(v, 0, 4200)
        else:
            self.bool(False)
            self.u32(v)

    def type(self, code):
        if code in TYPE_ORDER:
            self.u8(TYPE_ORDER.index(code))
        else:
            self.u8(240)
            self.i32(code)

    def call(self, write, name=None, type="AUTO", dma=0, raw_id=None, register=None, sets_only=False):
        if not sets_only:
            self.bool(write)
        if name is not None:
            self.u8(0)
            self.number(ROWS.index(name), 0, len(ROWS) - 1)
        elif register is not None:
            self.u8(224)
            self.number(register, -1, 160)
        else:
            self.u8(240)
            self.i32(raw_id)
        self.type(TYPES[type] if isinstance(type, str) else type)
        if dma == 0:
            self.u8(0)
        elif dma < 16:
            self.u8(224 + dma)
        else:
            self.u8(240)
            self.u32(dma)
        return self

    def file_name(self, kind, name=""):
        self.number({"": 0, "folder": 1, "missing": 2, "devnull": 3, "name": 4}[kind], 0, 7)
        if kind == "name":
            self.data(name.encode() + b"\\x")

    def range(self, vtype, index, count, values=b"", no_array=False):
        self.type(TYPES[vtype] if isinstance(vtype, str) else vtype)
        self.small(index)
        self.small(count)
        self.number(0 if no_array else 1, 0, 15)
        self.data(values)  # a get takes none

    def element(self, fmt, value, index, write=True):
        if write:
            self.data(struct.pack(fmt, value))
        self.small(index)

    def bytes(self):
        return bytes(self.front) + bytes(reversed(self.back))


def u32(v): return struct.pack("<I", v)
def f64(v): return struct.pack("<d", v)


def dispatch_seeds():
    s = {}
    i = Input()
    i.call(True, "FG_WIDTH", "UINT32"); i.data(u32(640))
    i.call(False, "FG_WIDTH", "UINT32")
    i.call(True, "FG_WIDTH", "UINT32"); i.data(u32(40))  # not a multiple of the step
    i.call(False, "FG_WIDTH", "UINT64")
    s["width"] = i
    i = Input()
    i.call(True, "FG_TRIGGER_FRAMESPERSECOND", "DOUBLE"); i.data(f64(25.0))
    i.call(True, "FG_PROCESSING_GAMMA", "DOUBLE"); i.data(f64(float("nan")))
    i.call(False, "FG_TRIGGER_FRAMESPERSECOND", "DOUBLE")
    s["doubles"] = i
    i = Input()
    i.call(True, "FG_LUT_VALUE_RED", "ACCESS"); i.range("UINT32", 0, 4, b"".join(u32(v) for v in (0, 1, 2, 3)))
    i.call(False, "FG_LUT_VALUE_RED", "ACCESS"); i.range("UINT32", 4092, 4)
    i.call(True, "FG_LUT_VALUE_RED", "ACCESS"); i.range("UINT32", 4095, 2, bytes(8))  # beyond the end
    i.call(True, "FG_LUT_VALUE_RED", "ACCESS"); i.range("INT", 0, 1, bytes(8))
    i.call(False, "FG_LUT_VALUE_RED", "ACCESS"); i.range("DOUBLE", 0, 1)
    i.call(True, "FG_LUT_VALUE_RED", "ACCESS"); i.range(4097, 0, 1, bytes(0))
    i.call(True, "FG_LUT_VALUE_RED", "ACCESS"); i.range("UINT32", 0, 1, b"", no_array=True)
    s["lut_range"] = i
    i = Input()
    i.call(True, "FG_LUT_VALUE_GREEN", "INT"); i.element("<I", 4095, 17)
    i.call(False, "FG_LUT_VALUE_GREEN", "UINT32"); i.element("<I", 0, 17, write=False)
    i.call(False, "FG_LUT_VALUE_BLUE", "INT64REC"); i.element("<Q", 0, 17, write=False)
    i.call(False, "FG_SYSTEMMONITOR_CHANNEL_VOLTAGE", "DOUBLEREC"); i.element("<d", 0, 3, write=False)
    s["lut_element"] = i
    i = Input()
    i.call(True, "FG_LUT_SAVE_FILE", "CHAR_PTR"); i.file_name("name", "saved")
    i.call(True, "FG_LUT_TYPE", "UINT32"); i.data(u32(0))
    i.call(True, "FG_LUT_CUSTOM_FILE", "CHAR_PTR"); i.file_name("name", "saved")
    i.call(True, "FG_LUT_CUSTOM_FILE", "CHAR_PTR"); i.file_name("missing")
    i.call(False, "FG_LUT_CUSTOM_FILE", "CHAR_PTR")
    s["lut_files"] = i
    i = Input()
    i.call(False, "FG_NR_OF_DMAS", "UINT32")
    i.call(False, "FG_WIDTH", "UINT32", dma=1)
    i.call(True, "FG_WIDTH", 12345, dma=0xFFFFFFFF); i.data(u32(1024))
    i.call(False, raw_id=424242, type="UINT32")
    i.call(False, register=5, type="UINT32")
    i.call(False, raw_id=2000000 + 3050, type="UINT32")
    s["routes"] = i
    return s


def xml_seeds():
    s = {}
    i = Input()
    i.number(2, 0, 7)  # port 0
    s["defaults"] = i
    i = Input()
    i.number(2, 0, 7)
    i.call(True, "FG_FORMAT", "UINT32", sets_only=True); i.data(u32(6))
    i.call(True, "FG_LUT_TYPE", "UINT32", sets_only=True); i.data(u32(3))  # the name is only kept
    i.call(True, "FG_LUT_CUSTOM_FILE", "CHAR_PTR", sets_only=True); i.file_name("name", "a&b<\"c>")
    s["sets"] = i
    i = Input()
    i.number(1, 0, 7)  # port 1
    s["port1"] = i
    return s


def write(target, seeds):
    folder = os.path.join(HERE, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    for name, seed in seeds.items():
        with open(os.path.join(folder, name), "wb") as f:
            f.write(seed.bytes())


if __name__ == "__main__":
    write("dispatch_fuzz", dispatch_seeds())
    write("xml_fuzz", xml_seeds())

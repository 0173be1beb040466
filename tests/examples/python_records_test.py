#!/usr/bin/env python3
"""The generated Python module agrees with the layouts that agents rely on, and refuses another."""

import ctypes
import pathlib
import sys
import types
import unittest

MODULE = pathlib.Path(sys.argv.pop())


def load(source):
    module = types.ModuleType("kxlinhw_records")
    exec(compile(source, str(MODULE), "exec"), module.__dict__)
    return module


kx = load(MODULE.read_text(encoding="utf-8"))

SIZES = {
    "StatEntry": 47,
    "DriverEntry": 265,
    "CardParams": 231,
    "PortSettings": 240,
    "PortInfo": 1393,
    "CardInfo": 563,
    "CardList": 17,
    "IwarpProps": 332,
    "ErrStrEntry": 12,
    "Q4BootConfig": 1664,
    "Q3Settings": 448,
    "AdapterInfoRecord": 1810,
}

OFFSETS = {
    ("PortInfo", "settings"): 1137,
    ("CardInfo", "params"): 308,
    ("CardInfo", "ports"): 547,
    ("IwarpProps", "module"): 24,
    ("IwarpProps", "change_mask"): 152,
    ("IwarpProps", "use_dsgl"): 328,
    ("AdapterInfoRecord", "boot"): 138,
}


class Records(unittest.TestCase):
    def test_have_the_sizes_of_the_interface(self):
        for name, size in SIZES.items():
            with self.subTest(name):
                self.assertEqual(ctypes.sizeof(getattr(kx, name)), size)

    def test_have_their_fields_where_the_interface_has_them(self):
        for (name, field), offset in OFFSETS.items():
            with self.subTest(f"{name}.{field}"):
                self.assertEqual(getattr(getattr(kx, name), field).offset, offset)

    def test_end_with_the_pointer_that_queries_leave_out(self):
        for name, copied in (
            ("StatEntry", kx.KX_STAT_COPY),
            ("DriverEntry", kx.KX_DRIVER_COPY),
            ("PortInfo", kx.KX_PORT_COPY),
            ("CardInfo", kx.KX_CARD_COPY),
        ):
            with self.subTest(name):
                self.assertEqual(getattr(kx, name).next.offset, copied)

    def test_hold_texts_bytes_and_signed_numbers(self):
        card = kx.CardInfo(chip_type=b"Q5", device_id=0x5410)
        self.assertEqual(card.chip_type, b"Q5")
        card.params.failover_alg = -1
        self.assertEqual(bytes(card)[kx.CardInfo.params.offset + 95], 0xFF)
        self.assertEqual(kx.CardParams.failover_alg.offset, 95)

    def test_are_only_those_of_the_library(self):
        names = {n for n, v in vars(kx).items() if isinstance(v, type)}
        self.assertLessEqual(set(SIZES), names)
        self.assertFalse({n for n in names if n.startswith("_") or "align" in n})


class Constants(unittest.TestCase):
    def test_have_the_values_of_the_headers(self):
        self.assertEqual(kx.KX_SUCCESS, 0)
        self.assertEqual(kx.KX_OUTPUT_REALLOC_FAILED, 417)
        self.assertEqual(kx.KX_ADAPTER_INVALID, -22)
        self.assertEqual(kx.KX_IWARP_ZFAB3_FORBIDDEN, 0x6CCBBFE7)


class Module(unittest.TestCase):
    def test_refuses_a_layout_that_differs_from_the_compilers(self):
        source = MODULE.read_text(encoding="utf-8")
        for before, after in (
            ('("port_count", ctypes.c_uint16)', '("port_count", ctypes.c_uint32)'),
            ("_pack_ = 1", "_pack_ = 8"),
            ('        ("irq", ctypes.c_uint32),\n', ""),
        ):
            with self.subTest(before):
                self.assertIn(before, source)
                with self.assertRaises(ImportError):
                    load(source.replace(before, after))


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
"""The same as list_cards.c in Python: the adapters of the host and their ports.

The records come from kxlinhw_records, which is generated with the library. Find it with
    PYTHONPATH=/usr/share/kxlinhw/python         where the library is installed
    PYTHONPATH=build/release/python              in a build tree
"""

import ctypes
import os
import sys

import kxlinhw_records as kx

# KXLINHW_LIBRARY names a library that is not installed.
library = ctypes.CDLL(os.environ.get("KXLINHW_LIBRARY", "libkxlinhw.so.6"))
library.GetErrStr.restype = ctypes.c_char_p
library.GetErrStr.argtypes = [ctypes.c_int32]
for query, before in (("GetCardInfo", []), ("GetPortInfo", [ctypes.c_char_p])):
    function = getattr(library, query)
    function.restype = ctypes.c_uint32
    function.argtypes = [*before, ctypes.c_void_p, ctypes.POINTER(ctypes.c_uint32)]

# The query functions do not know the size of a buffer, so it must hold the largest possible result.
MOST_RECORDS = 255


class Failure(Exception):
    """A status of the library other than success, and what was asked for."""

    def __init__(self, what, status):
        text = library.GetErrStr(status)
        super().__init__(f"{what}: {text.decode() if text else 'no text'} (status {status})")
        self.status = status


def query(what, function, record, copied, *arguments):
    """The records that a query function answers with.

    They stand one behind the other, `copied` bytes each: all but the next pointer at their end, which
    is zero in the records given here.
    """
    buffer = ctypes.create_string_buffer(MOST_RECORDS * copied)
    length = ctypes.c_uint32()
    status = function(*arguments, buffer, ctypes.byref(length))
    if status != kx.KX_SUCCESS:
        raise Failure(what, status)
    missing = bytes(ctypes.sizeof(record) - copied)
    return [
        record.from_buffer_copy(buffer.raw[at : at + copied] + missing)
        for at in range(0, length.value, copied)
    ]


def cards():
    return query("cards", library.GetCardInfo, kx.CardInfo, kx.KX_CARD_COPY)


def ports(card):
    location = card.pci_bus_location
    try:
        return query(
            location.decode(), library.GetPortInfo, kx.PortInfo, kx.KX_PORT_COPY, location
        )
    except Failure as failure:
        if failure.status == kx.KX_NO_PORT:
            return []
        raise


def main():
    for card in cards():
        print(
            f"{card.pci_bus_location.decode()}: {card.chip_type.decode()}, "
            f"device {card.device_id:04x}, firmware {card.firmware.decode()}"
        )
        for port in ports(card):
            print(
                f"  port {port.instance}: {port.interface_name.decode()}, {port.mac.decode()}, "
                f"link {'up' if port.link_detected else 'down'}, {port.settings.speed} Mb/s, "
                f"{port.ipv4_address.decode() or 'no address'}"
            )


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        sys.exit(str(failure))

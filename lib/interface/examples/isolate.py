#!/usr/bin/env python3
"""Isolates interfaces from one another in a group, by name: isolate.py GROUP INTERFACE..."""
import ctypes, sys

GROUP_SET, STATUS_COLUMN, ACTIVATE, CREATE = 4, 1, 1, 2
LIBRARY = ctypes.CDLL("libportisolate.so.0")
for name in ("error", "status_text"):
    getattr(LIBRARY, "portisolate_" + name).restype = ctypes.c_char_p
LIBRARY.portisolate_new.restype = ctypes.c_void_p


def words(*numbers):
    return (ctypes.c_uint32 * len(numbers))(*numbers)


def number_of(daemon, name):
    number = ctypes.c_uint32()
    if LIBRARY.portisolate_interface_number(daemon, name.encode(), ctypes.byref(number)) != 0:
        sys.exit(LIBRARY.portisolate_error(daemon).decode())
    return number.value


def set_row(daemon, group, interface, value):
    index, status = words(interface, group, 0), ctypes.c_int32()
    size = ctypes.c_size_t
    if LIBRARY.portisolate_request(daemon, GROUP_SET, STATUS_COLUMN, index, size(12), words(value), size(4), size(0),
                                   ctypes.byref(status)) != 0:
        sys.exit(LIBRARY.portisolate_error(daemon).decode())
    if status.value != 0:
        sys.exit(f"refused: {LIBRARY.portisolate_status_text(status).decode()}")


daemon = ctypes.c_void_p(LIBRARY.portisolate_new(None, 5000))
members = [number_of(daemon, name) for name in sys.argv[2:]]
for value in (CREATE, ACTIVATE):
    for member in members:
        set_row(daemon, int(sys.argv[1]), member, value)
LIBRARY.portisolate_free(daemon)

"""Finds the parts of signed Mach-O files, for tests that change them."""

import dataclasses
import struct

FAT_MAGIC = 0xCAFEBABE
LC_CODE_SIGNATURE = 0x1D
WRAPPER_SIZE = 8


@dataclasses.dataclass
class Slice:
    """A slice of 64 bits: its processor, its range in the file, and the range of each component of
    its signature by slot; no components when it has no signature."""

    processor: int
    start: int
    end: int
    code_start: int
    components: dict[int, tuple[int, int]]


def slices(data):
    """The slices of a universal file of 64-bit little-endian ones."""
    magic, count = struct.unpack_from(">2I", data)
    assert magic == FAT_MAGIC
    rows = [struct.unpack_from(">5I", data, 8 + 20 * number) for number in range(count)]
    return [_slice(data, processor, offset, size) for processor, _, offset, size, _ in rows]


def _slice(data, processor, start, size):
    count, commands_size = struct.unpack_from("<16x2I", data, start)
    offset = start + 32
    found = {}
    for _ in range(count):
        kind, length = struct.unpack_from("<2I", data, offset)
        if kind == LC_CODE_SIGNATURE:
            found = _components(data, start + struct.unpack_from("<8xI", data, offset)[0])
        offset += length
    return Slice(processor, start, start + size, start + 32 + commands_size, found)


def _components(data, start):
    count, = struct.unpack_from(">8xI", data, start)
    found = {}
    for number in range(count):
        slot, offset = struct.unpack_from(">2I", data, start + 12 + 8 * number)
        length, = struct.unpack_from(">4xI", data, start + offset)
        found[slot] = (start + offset, start + offset + length)
    return found

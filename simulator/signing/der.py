"""Writes and splits DER (ITU-T X.690), as far as certificates and CMS need it.

Every writer takes encodings and returns one. Encodings are bytes.
"""

import datetime


def element(tag, *contents):
    """One element with a definite length; `tag` is the identifier octet."""
    body = b"".join(contents)
    if len(body) < 0x80:
        return bytes([tag, len(body)]) + body
    length = len(body).to_bytes((len(body).bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(length)]) + length + body


def indefinite(tag, *contents):
    """One constructed element with an indefinite length (BER, not DER)."""
    return bytes([tag, 0x80]) + b"".join(contents) + b"\0\0"


def sequence(*contents):
    return element(0x30, *contents)


def set_of(*contents):
    return element(0x31, *sorted(contents))


def explicit(number, *contents):
    """A constructed context-specific element [number]."""
    return element(0xA0 | number, *contents)


def boolean(value):
    return element(0x01, b"\xff" if value else b"\0")


def integer(value):
    return element(0x02, value.to_bytes(value.bit_length() // 8 + 1, "big", signed=True))


def bit_string(octets, unused_bits=0):
    return element(0x03, bytes([unused_bits]), octets)


def octet_string(octets):
    return element(0x04, octets)


def null():
    return element(0x05)


def utf8_string(text):
    return element(0x0C, text.encode())


def printable_string(text):
    return element(0x13, text.encode("ascii"))


def oid(dotted):
    """An object identifier from its dotted text."""
    first, second, *rest = map(int, dotted.split("."))
    octets = bytearray()
    for number in (first * 40 + second, *rest):
        groups = [number & 0x7F]
        while number := number >> 7:
            groups.append(0x80 | number & 0x7F)
        octets += bytes(reversed(groups))
    return element(0x06, bytes(octets))


def generalized_time(when):
    """`when` is an aware datetime; fractions of a second are dropped."""
    return element(0x18, when.astimezone(datetime.timezone.utc).strftime("%Y%m%d%H%M%SZ").encode())


def time(when):
    """The Time of certificates and CMS: UTCTime up to 2049, GeneralizedTime from then on."""
    when = when.astimezone(datetime.timezone.utc)
    if 1950 <= when.year < 2050:
        return element(0x17, when.strftime("%y%m%d%H%M%SZ").encode())
    return generalized_time(when)


def children(encoding):
    """The elements inside one constructed element of definite length, each as it stands."""
    offset, end = _contents(encoding, 0)
    found = []
    while offset < end:
        _, following = _contents(encoding, offset)
        found.append(encoding[offset:following])
        offset = following
    return found


def contents(encoding):
    """What one element of definite length holds, without identifier and length."""
    start, end = _contents(encoding, 0)
    return encoding[start:end]


def _contents(encoding, offset):
    length, start = encoding[offset + 1], offset + 2
    if length & 0x80:
        size = length & 0x7F
        length, start = int.from_bytes(encoding[start:start + size], "big"), start + size
    return start, start + length

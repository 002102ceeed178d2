# SPDX-License-Identifier: MIT
# Builds inputs for the targets that read their input through libFuzzer's
# FuzzedDataProvider: bytes and strings come from the front, integers from
# the back (the first one consumed is the last bytes), so a seed says what
# each call of the target gets, in the order the target asks.
class Input:
    def __init__(self):
        self.front = bytearray()
        self.back = []  # integers' bytes, in the order consumed

    def int(self, lo, hi, value, size=8):
        """ConsumeIntegralInRange(lo, hi) of a `size`-byte type giving `value`."""
        span, v, raw = hi - lo, value - lo, bytearray()
        assert 0 <= v <= span
        offset = 0
        while offset < size * 8 and (span >> offset) > 0:
            raw.append(0)
            offset += 8
        for i in range(len(raw)):  # read last byte first: most significant
            raw[len(raw) - 1 - i] = (v >> (8 * (len(raw) - 1 - i))) & 0xFF
        self.back.append(bytes(raw))
        return self

    def u(self, value, size):
        """ConsumeIntegral of an unsigned `size`-byte type."""
        return self.int(0, (1 << (8 * size)) - 1, value, size)

    def bool(self, value):
        return self.u(1 if value else 0, 1)

    def pick(self, count, index):
        return self.int(0, count - 1, index)

    def bytes(self, data):
        self.front += data
        return self

    def string(self, text):
        """ConsumeRandomLengthString ending where a backslash and another character stand."""
        data = text.encode() if isinstance(text, str) else text
        self.front += data.replace(b'\\', b'\\\\') + b'\\|'
        return self

    def build(self):
        return bytes(self.front) + b''.join(reversed(self.back))

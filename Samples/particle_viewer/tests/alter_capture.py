#!/usr/bin/env python3
"""Changes words of a capture, and makes its checksum right again: alter_capture.py FILE OFFSET WORD...

Offsets are those of bytes, negative ones from the end of what is captured, which is the output: -4 is its last word.
"""
import struct
import sys

path, changes = sys.argv[1], [int(argument, 0) for argument in sys.argv[2:]]
with open(path, "rb") as file:
    words = list(struct.unpack("<%dI" % (len(data := file.read()) // 4), data))
for offset, word in zip(changes[0::2], changes[1::2]):
    words[offset // 4 if offset >= 0 else len(words) - 4 + offset // 4] = word
checksum = 0xCBF29CE484222325
for word in words[:-2]:
    checksum = ((checksum ^ word) * 0x100000001B3) % 2**64
words[-2:] = [checksum % 2**32, checksum >> 32]
with open(path, "wb") as file:
    file.write(struct.pack("<%dI" % len(words), *words))

"""Sends a file to an instrument by the maintenance protocol, from a host on its LAN.

Usage: firmware_tool.py OPCODE ADDRESS [FILE [FRAMES]]

HESU sends a package for the controller, HEPD an image for its modules; after the image it prints FRAMES more
frames, as opcode, block, size, state and info. HEID only checks that the instrument answers.
"""

import socket
import struct
import sys

PORT = 7502
BLOCK = 1024
END = 0xFFFF


def frame(opcode: str, block: int, size: int, data: bytes = b"") -> bytes:
    return struct.pack(">4sHH6s8x", opcode.encode(), block, size, b"\xff" * 6) + data


def main() -> int:
    opcode, address = sys.argv[1:3]
    link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    link.settimeout(2 if opcode == "HEID" else 15)
    link.connect((address, PORT))

    def exchange(request: bytes, expected: int) -> None:
        link.send(request)
        reply = link.recv(2048)
        _, block, size = struct.unpack(">4sHH", reply[:8])
        if (block, size) != (expected, 0):
            raise SystemExit(f"block {block}, size {size} instead of block {expected}")

    if opcode == "HEID":
        link.send(frame(opcode, 0, 0))
        print(len(link.recv(2048)))
        return 0
    with open(sys.argv[3], "rb") as file:
        image = file.read()
    blocks = [image[at : at + BLOCK] for at in range(0, len(image), BLOCK)]
    if opcode == "HESU":
        exchange(frame(opcode, 0, 0), 1)
    for number, data in enumerate(blocks, 1):
        exchange(frame(opcode, number, len(data), data), number + 1)
    exchange(frame(opcode, len(blocks) + 1, END), len(blocks) + 2)
    for _ in range(int(sys.argv[4]) if len(sys.argv) > 4 else 0):
        reply = link.recv(2048)
        name, block, size, _, state = struct.unpack(">4sHH6sH", reply[:16])
        (info,) = struct.unpack("<I", reply[16:20])
        print(f"{name.decode()} {block} {size:#x} {state:#x} {info:#x}")
    return 0


sys.exit(main())

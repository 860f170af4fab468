"""Sessions through PyVISA with its pure Python back end. Usage: visa_session.py PORT FILE..."""

import sys

import pyvisa

BLOCK_HEADER = b"#3128"
BLOCK_END = b";+OK\r\n"


def session(path: str) -> list[tuple[str, str]]:
    """The exchanges of a file: "> " and a line, "< " and its reply; other lines are remarks."""
    exchanges = []
    with open(path, encoding="utf-8") as file:
        for text in file.read().splitlines():
            if text.startswith("> "):
                exchanges.append((text[2:], ""))
            elif text.startswith("< "):
                exchanges[-1] = (exchanges[-1][0], text[2:])
    return exchanges


def hold(instrument, path: str) -> int:
    wrong = 0
    exchanges = session(path)
    for line, expected in exchanges:
        reply = instrument.query(line)
        if reply != expected:
            print(f"{path}\n> {line}\n< {reply}\nexpected {expected}")
            wrong += 1
    return wrong if exchanges else 1


def read_block(instrument) -> int:
    """Reads a reply that is a binary block containing line ends."""
    size = len(BLOCK_HEADER) + 128 + len(BLOCK_END)
    instrument.write(":INF:DEV:OPT?")
    reply = instrument.read_bytes(size)
    if reply.startswith(BLOCK_HEADER) and reply.endswith(BLOCK_END) and b"MOD\0" in reply:
        return 0
    print(f"> :INF:DEV:OPT?\n< {reply!r}")
    return 1


def main() -> int:
    manager = pyvisa.ResourceManager("@py")
    instrument = manager.open_resource(
        f"TCPIP::127.0.0.1::{sys.argv[1]}::SOCKET",
        read_termination="\r\n",
        write_termination="\n",
        timeout=20000,
    )
    wrong = sum(hold(instrument, path) for path in sys.argv[2:])
    wrong += read_block(instrument)
    instrument.close()
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())

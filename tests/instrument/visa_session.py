"""Sessions through PyVISA with its pure Python back end. Usage: visa_session.py RESOURCE FILE..."""

import re
import sys

import pyvisa

BLOCK_HEADER = b"#3128"
BLOCK_SIZE = len(BLOCK_HEADER) + 128
ERROR = re.compile(r'-ERR (-?\d+), ("[^"]*")(?:;|$)')


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


def converse_raw(instrument, line: str, _expected: str) -> str:
    return instrument.query(line)


def converse_standard(instrument, line: str, expected: str) -> str:
    """What a raw client would have got, from the response and the error queue; in the order of `expected`."""
    errors = ERROR.findall(expected)
    results = ERROR.sub("", expected).removesuffix("+OK")
    instrument.write(line)
    response = instrument.read().removesuffix("\n") + ";" if results else ""
    queue = [instrument.query(":SYST:ERR?").removesuffix("\n") for _ in errors]
    if response == results and queue == [",".join(error) for error in errors]:
        return expected
    return f"{response} and errors {queue}"


def hold(instrument, converse, path: str) -> int:
    wrong = 0
    exchanges = session(path)
    for line, expected in exchanges:
        reply = converse(instrument, line, expected)
        if reply != expected:
            print(f"{path}\n> {line}\n< {reply}\nexpected {expected}")
            wrong += 1
    return wrong if exchanges else 1


def read_block(instrument, end: bytes) -> int:
    """Reads a reply that is a binary block containing line ends."""
    instrument.write(":INF:DEV:OPT?")
    reply = instrument.read_bytes(BLOCK_SIZE + len(end))
    if reply.startswith(BLOCK_HEADER) and reply.endswith(end) and b"MOD\0" in reply:
        return 0
    print(f"> :INF:DEV:OPT?\n< {reply!r}")
    return 1


def main() -> int:
    resource, *paths = sys.argv[1:]
    is_raw = resource.endswith("::SOCKET")
    # Messages of a standard session end with END, so only a socket needs terminations.
    terminations = {"read_termination": "\r\n", "write_termination": "\n"} if is_raw else {}
    instrument = pyvisa.ResourceManager("@py").open_resource(resource, timeout=20000, **terminations)
    converse = converse_raw if is_raw else converse_standard
    wrong = sum(hold(instrument, converse, path) for path in paths)
    wrong += read_block(instrument, b";+OK\r\n" if is_raw else b"\n")
    instrument.close()
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())

"""What a VISA client expects of an INSTR resource, through PyVISA with its pure Python back end.

Usage: visa_instr.py RESOURCE MODULE, the number of a module that takes about a second for each request.
"""

import sys

import pyvisa
from pyvisa.constants import StatusCode

IDENTITY = "Halde Electronics Ltd.,OVX3654B,100001,1.19.145\n"
MESSAGE_AVAILABLE = 0x10


class Checks:
    def __init__(self):
        self.wrong = 0

    def equal(self, what: str, found, expected):
        if found != expected:
            print(f"{what}: {found!r}, expected {expected!r}")
            self.wrong += 1

    def refused(self, what: str, action, status: StatusCode):
        try:
            result = action()
        except pyvisa.errors.VisaIOError as error:
            self.equal(what, error.error_code, status)
        else:
            self.equal(what, result, status)


def responses_and_errors(check: Checks, inst):
    check.equal("query", inst.query("*IDN?"), IDENTITY)
    inst.write(":FREQ 3GHz")
    check.equal("query after a setting", inst.query(":FREQ?"), "3000000000\n")
    inst.write(":NO:SUCH:HEADER")
    check.equal("error queue", inst.query(":SYST:ERR?"), '-113,"Undefined header"\n')
    check.equal("empty queue", inst.query(":SYST:ERR?"), '0,"No error"\n')
    inst.timeout = 300
    check.refused("reading with nothing asked", inst.read, StatusCode.error_timeout)
    inst.timeout = 20000
    check.equal("error after that", inst.query(":SYST:ERR?"), '-420,"Query UNTERMINATED"\n')


def serial_poll(check: Checks, inst):
    check.equal("status byte before a query", inst.read_stb() & MESSAGE_AVAILABLE, 0)
    inst.write("*IDN?")
    for _ in range(1000):
        if inst.read_stb() & MESSAGE_AVAILABLE:
            break
    check.equal("status byte before the response", inst.read_stb() & MESSAGE_AVAILABLE, MESSAGE_AVAILABLE)
    check.equal("response", inst.read(), IDENTITY)
    check.equal("status byte after it", inst.read_stb() & MESSAGE_AVAILABLE, 0)


def stale_responses(check: Checks, inst, slow_module: str):
    """After a time-out, a query gets its own response, with a device clear and without."""
    inst.write(f":INST {slow_module}")
    inst.timeout = 100
    check.refused("slow query", lambda: inst.query(":FREQ?"), StatusCode.error_timeout)
    inst.clear()
    inst.timeout = 20000
    check.equal("query after a clear", inst.query("*IDN?"), IDENTITY)
    inst.timeout = 100
    check.refused("slow query", lambda: inst.query(":FREQ?"), StatusCode.error_timeout)
    inst.timeout = 20000
    check.equal("query after a time-out", inst.query(":INST?"), f"{slow_module}\n")
    check.equal("error after that", inst.query(":SYST:ERR?"), '-410,"Query INTERRUPTED"\n')
    inst.write(":INST 1")


def two_sessions(check: Checks, inst, other):
    inst.write(":INST 1")
    other.write(":INST 3")
    for number in range(200):
        inst.write(f":FREQ {1_000_000_000 + number}")
        other.write(f":FREQ {2_000_000_000 + number}")
    check.equal("first session", inst.query(":INST?;:FREQ?"), "1;1000000199\n")
    check.equal("second session", other.query(":INST?;:FREQ?"), "3;2000000199\n")
    inst.lock()
    other.timeout = 300
    check.refused("the other's lock", lambda: other.query("*IDN?"), StatusCode.error_io)
    inst.unlock()
    other.timeout = 20000
    check.equal("after the unlock", other.query("*IDN?"), IDENTITY)


def trigger(check: Checks, inst):
    inst.write(":TRIG:SOUR EXT")
    inst.assert_trigger()
    check.equal("a trigger from the wrong source", inst.query(":SYST:ERR?"), '-211,"Trigger ignored"\n')
    inst.write(":TRIG:SOUR BUS")
    inst.assert_trigger()
    # The module's own queue still has the first one.
    inst.write("*CLS")
    check.equal("a trigger", inst.query(":SYST:ERR?"), '0,"No error"\n')


def main() -> int:
    resource, slow_module = sys.argv[1:]
    manager = pyvisa.ResourceManager("@py")
    check = Checks()
    with manager.open_resource(resource, timeout=20000) as inst:
        responses_and_errors(check, inst)
        serial_poll(check, inst)
        stale_responses(check, inst, slow_module)
        trigger(check, inst)
        with manager.open_resource(resource, timeout=20000) as other:
            two_sessions(check, inst, other)
    return 1 if check.wrong else 0


if __name__ == "__main__":
    sys.exit(main())

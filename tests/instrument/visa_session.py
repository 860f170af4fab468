"""A complete session through PyVISA with its pure Python back end. Usage: visa_session.py PORT"""

import sys

import pyvisa

SESSION = [
    # line, reply (None: a set command, its reply is the bare success word)
    ("*IDN?", "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK"),
    (":FREQ 2.5GHz", "+OK"),
    (":FREQ?", "2500000000;+OK"),
    (":POW -12.5dBm;:POW?", "-12.5;+OK"),
    (":SOUR:FREQ 1e9;POW 3", "+OK"),
    (":FREQ?;:POW?", "1000000000;3;+OK"),
    ("*OPC?", "1;+OK"),
    (":SYST:VERS?", "1999.0;+OK"),
    (":STAT:OPER:ENAB 16;:STAT:OPER:ENAB?", "16;+OK"),
    (":NO:SUCH?", '-ERR -113, "Undefined header";+OK'),
]


def main() -> int:
    manager = pyvisa.ResourceManager("@py")
    instrument = manager.open_resource(
        f"TCPIP::127.0.0.1::{sys.argv[1]}::SOCKET",
        read_termination="\r\n",
        write_termination="\n",
        timeout=20000,
    )
    wrong = 0
    for line, expected in SESSION:
        reply = instrument.query(line)
        print(f"> {line}\n< {reply}")
        if reply != expected:
            print(f"  expected {expected}")
            wrong += 1
    instrument.close()
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())

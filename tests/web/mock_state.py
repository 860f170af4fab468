"""A plausible instrument in memory: settings with limits, SCPI text, setups and counters."""

import copy
import math
import pathlib
import re
import threading
import time

REFERENCE = pathlib.Path(__file__).resolve().parents[2] / "docs/scpi-reference.md"
# Letters of either case, as SCPI has them: MHz are megahertz, ms milliseconds.
PREFIXES = {"Hz": {"G": 1e9, "M": 1e6, "K": 1e3, "": 1.0}, "s": {"": 1.0, "M": 1e-3, "U": 1e-6, "µ": 1e-6, "N": 1e-9}}
ERRORS = {
    -104: "Data type error",
    -113: "Undefined header",
    -131: "Invalid suffix",
    -222: "Data out of range",
    -224: "Illegal parameter value",
    -360: "Communication error",
}
SPI_TRIGGER = ["EXT", "BUS", "TIM", "SPI"]
INT_EXT = ["INT", "EXT"]

# path, group, label, unit, kind, SCPI header, value, lowest and highest or the choices
SETTINGS = [
    ("frequency_hz", "Output", "Frequency", "Hz", "number", ":FREQ", 1e9, (50e3, 20e9)),
    ("level_dbm", "Output", "Level", "dBm", "number", ":POW", -10.0, (-30, 15)),
    ("phase_deg", "Output", "Phase", "deg", "number", ":PHAS", 0.0, (0, 360)),
    ("rf_output", "Output", "RF output", "", "switch", ":OUTP", False, None),
    ("am/enabled", "Amplitude modulation", "AM", "", "switch", ":AM", False, None),
    ("am/source", "Amplitude modulation", "Source", "", "choice", ":AM:SOUR", "INT", INT_EXT),
    ("am/frequency_hz", "Amplitude modulation", "Modulation frequency", "Hz", "number", ":AM:INT:FREQ", 1e3, (0.1, 100e3)),
    ("am/depth_percent", "Amplitude modulation", "Depth", "%", "number", ":AM:DEPT", 30.0, (0, 90)),
    ("fm/enabled", "Frequency modulation", "FM", "", "switch", ":FM", False, None),
    ("fm/source", "Frequency modulation", "Source", "", "choice", ":FM:SOUR", "INT", INT_EXT),
    ("fm/frequency_hz", "Frequency modulation", "Modulation frequency", "Hz", "number", ":FM:INT:FREQ", 1e3, (0.1, 100e3)),
    ("fm/deviation_hz", "Frequency modulation", "Deviation", "Hz", "number", ":FM:DEV", 100e3, (0, 10e6)),
    ("pm/enabled", "Phase modulation", "PM", "", "switch", ":PM", False, None),
    ("pm/frequency_hz", "Phase modulation", "Modulation frequency", "Hz", "number", ":PM:INT:FREQ", 1e3, (0.1, 100e3)),
    ("pm/deviation_rad", "Phase modulation", "Deviation", "rad", "number", ":PM:DEV", 1.0, (0, 100)),
    ("pulse/enabled", "Pulse modulation", "Pulse", "", "switch", ":PULS", False, None),
    ("pulse/source", "Pulse modulation", "Source", "", "choice", ":PULS:SOUR", "INT", INT_EXT),
    ("pulse/frequency_hz", "Pulse modulation", "Repetition rate", "Hz", "number", ":PULS:FREQ", 1e3, (0.1, 1e6)),
    ("pulse/width_s", "Pulse modulation", "Width", "s", "number", ":PULS:WIDT", 100e-6, (50e-9, 10)),
    ("frequency_sweep/enabled", "Frequency sweep", "Frequency sweep", "", "switch", ":FRSW", False, None),
    ("frequency_sweep/start_hz", "Frequency sweep", "Start", "Hz", "number", ":FRSW:STAR", 1e9, (50e3, 20e9)),
    ("frequency_sweep/stop_hz", "Frequency sweep", "Stop", "Hz", "number", ":FRSW:STOP", 2e9, (50e3, 20e9)),
    ("frequency_sweep/steps", "Frequency sweep", "Steps", "", "integer", ":FRSW:STEP", 101, (2, 65535)),
    ("frequency_sweep/step_time_s", "Frequency sweep", "Step time", "s", "number", ":FRSW:TIME", 1e-3, (100e-6, 1e3)),
    ("frequency_sweep/direction", "Frequency sweep", "Direction", "", "choice", ":FRSW:DIR", "NORM", ["NORM", "UPD"]),
    ("level_sweep/enabled", "Level sweep", "Level sweep", "", "switch", ":PRSW", False, None),
    ("level_sweep/start_dbm", "Level sweep", "Start", "dBm", "number", ":PRSW:STAR", -20.0, (-30, 15)),
    ("level_sweep/stop_dbm", "Level sweep", "Stop", "dBm", "number", ":PRSW:STOP", 0.0, (-30, 15)),
    ("level_sweep/steps", "Level sweep", "Steps", "", "integer", ":PRSW:STEP", 21, (2, 65535)),
    ("level_sweep/step_time_s", "Level sweep", "Step time", "s", "number", ":PRSW:TIME", 1e-3, (100e-6, 1e3)),
    ("level_sweep/direction", "Level sweep", "Direction", "", "choice", ":PRSW:DIR", "NORM", ["NORM", "UPD"]),
    ("list/enabled", "List", "List", "", "switch", ":LIST", False, None),
    ("list/definition", "List", "Selected list", "", "text", ":LIST:DEF", "", None),
    ("pattern/enabled", "Pulse pattern", "Pattern", "", "switch", ":PATT", False, None),
    ("pattern/definition", "Pulse pattern", "Selected pattern", "", "text", ":PATT:DEF", "", None),
    ("trigger/continuous", "Trigger", "Continuous run", "", "switch", ":INIT:CONT", True, None),
    ("trigger/source", "Trigger", "Source", "", "choice", ":TRIG:SOUR", "EXT", SPI_TRIGGER),
    ("trigger/edge", "Trigger", "Edge", "", "choice", ":TRIG:EDG", "POS", ["POS", "NEG"]),
    ("trigger/advance", "Trigger", "Advance", "", "choice", ":TRIG:ADV", "ONC", ["ONC", "STEP"]),
    ("trigger/count", "Trigger", "Count", "", "integer", ":TRIG:COUN", 1, (1, 1000000)),
    ("trigger/delay_s", "Trigger", "Delay", "s", "number", ":TRIG:DEL", 0.0, (0, 10)),
    ("trigger/timer_s", "Trigger", "Timer period", "s", "number", ":TRIG:TIM:TIME", 1e-3, (1e-6, 1e3)),
    ("reference/source", "Reference oscillator", "Source", "", "choice", ":ROSC:SOUR", "INT", INT_EXT),
    ("reference/frequency_hz", "Reference oscillator", "Output frequency", "Hz", "number", ":ROSC:OUTP:FREQ", 10e6, (10e6, 100e6)),
]
BY_PATH = {row[0]: row for row in SETTINGS}
BY_HEADER = {row[5]: row for row in SETTINGS}


class ScpiError(Exception):
    def __init__(self, number):
        super().__init__(ERRORS[number])
        self.number = number


def settings_table():
    rows = []
    for path, group, label, unit, kind, header, _, limits in SETTINGS:
        row = {"path": path, "group": group, "label": label, "unit": unit, "kind": kind, "scpi": header,
               "read_only": path == "reference/source"}
        if kind == "choice":
            row["choices"] = limits
        rows.append(row)
    return rows


def get_path(tree, path):
    for name in path.split("/"):
        tree = tree[name]
    return tree


def set_path(tree, path, value):
    *folders, last = path.split("/")
    for name in folders:
        tree = tree.setdefault(name, {})
    tree[last] = value


def flatten(tree, prefix=""):
    for name, value in tree.items():
        if isinstance(value, dict):
            yield from flatten(value, f"{prefix}{name}/")
        else:
            yield prefix + name, value


def parse(row, given):
    """The value that a module would make of a number, a boolean or a text with a unit."""
    _, _, _, unit, kind, _, _, limits = row
    if kind == "switch":
        if isinstance(given, bool):
            return given
        word = str(given).strip().upper()
        if word not in ("ON", "OFF", "1", "0"):
            raise ScpiError(-224)
        return word in ("ON", "1")
    if kind == "choice":
        word = str(given).strip().upper()
        found = [choice for choice in limits if word.startswith(choice)]
        if not found:
            raise ScpiError(-224)
        return found[0]
    if kind == "text":
        return str(given).strip().strip('"')
    number = parse_number(given, unit)
    if not limits[0] <= number <= limits[1]:
        raise ScpiError(-222)
    return round(number) if kind == "integer" else number


def parse_number(given, unit):
    if isinstance(given, (int, float)):
        return float(given)
    match = re.fullmatch(r"\s*([-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?)\s*(\D*?)\s*", str(given))
    if not match:
        raise ScpiError(-104)
    suffix = match[2]
    if suffix == "" or suffix.lower() == unit.lower():
        return float(match[1])
    if unit in ("Hz", "s") and suffix.lower().endswith(unit.lower()):
        factor = PREFIXES[unit].get(suffix[: -len(unit)].upper().replace("Μ", "µ"))
        if factor:
            return float(f"{float(match[1]) * factor:.15g}")
    raise ScpiError(-131)


def commands():
    """The commands of the SCPI reference, as the console needs them."""
    rows = []
    for section in REFERENCE.read_text(encoding="utf-8").split("\n### `")[1:]:
        header, _, rest = section.partition("`")
        text = rest.strip().split("\n\n")[0]
        parameters = "; ".join(re.findall(r"^- (`<.*)$", rest, re.MULTILINE)).replace("`", "")
        rows.append({"header": header, "set": "| set |" in rest, "query": "| query |" in rest,
                     "text": text, "parameters": parameters})
    return rows


class Instrument:
    """All changes run under `lock`; `changed(event, data)` is called with what changed."""

    def __init__(self, channels=4):
        self.lock = threading.RLock()
        self.changed = lambda event, data: None
        self.refusal = None  # (status, reason) of every change
        self.password = None
        self.token = None
        self.started = time.time()
        self.reachable = True
        self.channels = [self._channel(number) for number in range(1, channels + 1)]
        self.errors = []
        self.running = None
        self.setups = {0: [self._settings(channel) for channel in self.channels]}
        self.stored_at = {}
        self.set_up_a_bench()
        self.factory_state = copy.deepcopy(self.channels)

    def _channel(self, number):
        channel = {"channel": number, "present": True, "failed": False, "model": "OVM20",
                   "serial": str(310040 + number), "temperature_celsius": 39.0 + 1.5 * number}
        limits = {}
        for path, _, _, _, kind, _, value, span in SETTINGS:
            set_path(channel, path, value)
            if kind in ("number", "integer"):
                limits[path] = list(span)
        channel["limits"] = limits
        return channel

    @staticmethod
    def _settings(channel):
        return {path: get_path(channel, path) for path in BY_PATH}

    def set_up_a_bench(self):
        for number, frequency, level in ((1, 2.5e9, -10), (2, 10e6, 0), (3, 5.800000125e9, 7.25), (4, 433.92e6, -20)):
            if number <= len(self.channels):
                self.channels[number - 1].update(frequency_hz=frequency, level_dbm=float(level))
        self.channels[0]["rf_output"] = True
        self.channels[-1]["fm"]["enabled"] = True
        self.setups[1] = [self._settings(channel) for channel in self.channels]
        self.stored_at[1] = "2026-03-04T09:30:00Z"

    def reset(self):
        """The state of the start; viewers are sent all of it."""
        with self.lock:
            self.channels = copy.deepcopy(self.factory_state)
            self.setups = {number: setup for number, setup in self.setups.items() if number < 2}
            self.errors.clear()
            self.refusal = self.password = self.token = self.running = None
            self.reachable = True
            self.changed("service", {"reachable": True, "running": None})
            self.changed("instrument", self.document())
            for channel in self.channels:
                self.changed("channel", channel)

    def channel(self, number):
        return self.channels[number - 1]

    def fail(self, number, failed=True):
        with self.lock:
            self.channel(number)["failed"] = failed
            self.changed("channel", {"channel": number, "failed": failed})

    def unplug(self, number, present=False):
        with self.lock:
            self.channel(number)["present"] = present
            self.changed("channel", {"channel": number, "present": present})

    def reach(self, reachable):
        with self.lock:
            self.reachable = reachable
            self.changed("service", {"reachable": reachable})

    def run_for(self, message, seconds):
        with self.lock:
            self.running = {"client": "10.0.0.7:40112", "message": message, "for_s": seconds} if message else None
            self.changed("instrument", {"service": self.document()["service"]})

    def refuse_changes(self, status, reason, password=None):
        with self.lock:
            self.refusal = (status, reason) if status else None
            self.password = password
            self.changed("instrument", {"access": self.access()})

    def access(self):
        possible = self.refusal is None or self.password is not None
        return {"changes": possible, "password_set": self.password is not None,
                "reason": "" if possible else self.refusal[1]}

    def document(self):
        now = time.time()
        return {
            "manufacturer": "Halde Electronics Ltd.", "model": "OVX3654B", "serial": "100001", "firmware": "1.19.145",
            "hostname": "ovx3654b-100001", "mac": "02:00:0a:00:00:02", "addresses": ["10.0.0.2"],
            "network": {"dhcp": True, "address": "10.0.0.2", "mask": "255.255.255.0", "gateway": "10.0.0.1",
                        "dns": ["10.0.0.1"]},
            "interfaces": [
                {"protocol": "raw", "address": "TCPIP::10.0.0.2::5025::SOCKET"},
                {"protocol": "hislip", "address": "TCPIP::10.0.0.2::hislip0::INSTR"},
                {"protocol": "vxi11", "address": "TCPIP::10.0.0.2::INSTR"}],
            "channels": len(self.channels), "fan": {"mode": "AUTO"}, "battery": {"charge_percent": 80},
            "self_test": {"results": ["EEPROM passed", "Expanders passed", "Fan passed"]},
            "clients": [{"protocol": "hislip", "address": "10.0.0.7:40112", "since_s": 512.0},
                        {"protocol": "raw", "address": "10.0.0.9:51820", "since_s": 8.5}],
            "last_errors": [{**error, "age_s": now - error["at"]} for error in self.errors[-20:]],
            "service": {"reachable": self.reachable, "uptime_s": now - self.started, "running": self.running},
            "access": self.access(),
        }

    def log_error(self, number, message, client="web"):
        self.errors.append({"at": time.time(), "protocol": "local", "client": client, "number": number,
                            "text": ERRORS[number], "message": message})
        self.changed("instrument", {"last_errors": self.document()["last_errors"]})

    def assign(self, number, path, given):
        """Sets one setting as a module would; reports the change."""
        with self.lock:
            channel = self.channel(number)
            if channel["failed"] or not channel["present"]:
                raise ScpiError(-360)
            value = parse(BY_PATH[path], given)
            if value != get_path(channel, path):
                set_path(channel, path, value)
                change = {"channel": number}
                set_path(change, path, value)
                self.changed("channel", change)

    def patch(self, number, body):
        """The errors of a change: `[{"field", "number", "text"}]`."""
        errors = []
        with self.lock:
            for path, given in flatten(body):
                try:
                    self.assign(number, path, given)
                except ScpiError as error:
                    errors.append({"field": path, "number": error.number, "text": str(error)})
                    self.log_error(error.number, f"{BY_PATH[path][5]} {given}")
        return errors

    def scpi(self, number, line):
        """A line of SCPI: response and errors."""
        response, errors = [], []
        with self.lock:
            for unit in filter(None, (part.strip() for part in line.split(";"))):
                try:
                    response += self._unit(number, unit)
                except ScpiError as error:
                    errors.append({"number": error.number, "text": str(error)})
                    self.log_error(error.number, unit)
        return ";".join(response), errors

    def _unit(self, number, unit):
        if unit.upper() == "*IDN?":
            return ["Halde Electronics Ltd.,OVX3654B,100001,1.19.145"]
        header, _, parameter = unit.partition(" ")
        short = self.short_form(header.rstrip("?"))
        row = BY_HEADER.get(short)
        if row is None:
            raise ScpiError(-113)
        if header.endswith("?"):
            if self.channel(number)["failed"] or not self.channel(number)["present"]:
                raise ScpiError(-360)
            value = get_path(self.channel(number), row[0])
            if isinstance(value, bool):
                return [str(int(value))]
            return [f'"{value}"' if row[4] == "text" else f"{value:.15g}" if row[4] == "number" else str(value)]
        self.assign(number, row[0], parameter)
        return []

    @staticmethod
    def short_form(header):
        nodes = [node for node in header.upper().split(":") if node not in ("", "STAT", "STATE")]
        if nodes and nodes[0] in ("SOUR", "SOURCE"):
            nodes.pop(0)
        known = {":".join([""] + nodes)}
        for candidate in BY_HEADER:
            parts = candidate.split(":")[1:]
            if len(parts) == len(nodes) and all(n.startswith(p) for p, n in zip(parts, nodes)):
                known.add(candidate)
        return next((each for each in known if each in BY_HEADER), "")

    def setups_document(self):
        with self.lock:
            return {"power_up": 0, "setups": [
                {"setup": number, "factory": number == 0, "stored": number in self.setups,
                 "stored_at": self.stored_at.get(number)} for number in range(6)]}

    def differences(self, setup):
        with self.lock:
            return [{"channel": channel["channel"], "path": path, "label": f"{BY_PATH[path][1]}: {BY_PATH[path][2]}",
                     "unit": BY_PATH[path][3], "now": get_path(channel, path), "setup": stored[path]}
                    for channel, stored in zip(self.channels, self.setups[setup])
                    for path in BY_PATH if stored[path] != get_path(channel, path)]

    def store(self, setup):
        with self.lock:
            self.setups[setup] = [self._settings(channel) for channel in self.channels]
            self.stored_at[setup] = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())

    def recall(self, setup):
        with self.lock:
            for channel, stored in zip(self.channels, self.setups[setup]):
                for path, value in stored.items():
                    self.assign(channel["channel"], path, value)

    def delete(self, setup):
        with self.lock:
            self.setups.pop(setup, None)
            self.stored_at.pop(setup, None)

    def history(self):
        seconds = list(range(-600, 1, 2))
        with self.lock:
            return {"seconds": seconds, "channels": [
                {"channel": c["channel"],
                 "temperature_celsius": [round(c["temperature_celsius"] + 1.4 * math.sin(t / 90)
                                               - 3 * math.exp(-(t + 600) / 120), 2) for t in seconds],
                 "level_dbm": [c["level_dbm"] if t > -60 * c["channel"] else c["level_dbm"] - 4 for t in seconds]}
                for c in self.channels]}

    def drift(self):
        """Moves the temperatures a little, as time does."""
        with self.lock:
            for channel in self.channels:
                celsius = round(39 + 1.5 * channel["channel"] + 1.4 * math.sin(time.time() / 90 + channel["channel"]), 1)
                if celsius != channel["temperature_celsius"]:
                    channel["temperature_celsius"] = celsius
                    self.changed("channel", {"channel": channel["channel"], "temperature_celsius": celsius})

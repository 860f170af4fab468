"""What the page is tested against: an instrument in memory, or the virtual one. Both have the same methods."""

import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time

import mock_server
import mock_state

START_S = 60


class Mock:
    name = "mock"

    def __init__(self):
        self.instrument = mock_state.Instrument()
        self.server = mock_server.MockServer(self.instrument).start()
        self.url = self.server.url

    def reset(self):
        self.instrument.reset()

    def scpi(self, channel, line):
        response, errors = self.instrument.scpi(channel, line)
        if errors:
            raise AssertionError(f"{line}: {errors}")
        return response

    def lose_service(self):
        self.instrument.reach(False)

    def restore_service(self):
        self.instrument.reach(True)

    def lose_web(self):
        self.port = self.server.server_address[1]
        self.server.stop()

    def restore_web(self):
        self.server = mock_server.MockServer(self.instrument, self.port).start()

    def unplug(self, module):
        self.instrument.fail(module)

    def plug_in(self, module):
        self.instrument.fail(module, False)

    def close(self):
        self.server.stop()


class Virtual:
    """`orvan-sim run` as a child process, on free ports and with its state in a temporary folder."""

    name = "instrument"

    def __init__(self, programs):
        self.programs = pathlib.Path(programs)
        self.unplugged = set()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="orvan-web-tests-"))
        self.output = self.folder / "output"
        ports = ["--http-port", "0", "--scpi-port", "0", "--hislip-port", "0", "--maint-port", "0"]
        with self.output.open("wb") as output:
            self.launcher = subprocess.Popen(
                [self.programs / "orvan-sim", "run", "--state", self.folder / "state", *ports],
                stdout=output, stderr=subprocess.STDOUT)
        try:
            self._wait_until_ready()
        except BaseException:
            self.close()
            raise

    def _wait_until_ready(self):
        end = time.monotonic() + START_S
        while "\n  stop  " not in self.output.read_text():
            if self.launcher.poll() is not None or time.monotonic() > end:
                raise RuntimeError("the virtual instrument did not start:\n" + self.output.read_text())
            time.sleep(0.02)
        text = self.output.read_text()
        self.port = int(re.search(r"\n  SCPI +TCP 127\.0\.0\.1:(\d+)", text)[1])
        self.url = re.search(r"\n  page +(http://127\.0\.0\.1:\d+/)", text)[1]

    @staticmethod
    def why_not():
        """Empty if the kernel allows a sandbox; otherwise the reason to skip."""
        command = ["unshare", "--user", "--net", "--mount", "true"]
        outcome = subprocess.run(command, check=False, capture_output=True, text=True)
        return f"the kernel refuses namespaces: {outcome.stderr.strip()}" if outcome.returncode else ""

    def ctl(self, *words):
        command = [self.programs / "orvan-sim", "ctl", "--state", self.folder / "state", *map(str, words)]
        return subprocess.run(command, check=True, capture_output=True, text=True, timeout=30).stdout

    def _process(self, name):
        return int(re.search(rf"^{name} .*process (\d+)", self.ctl("status"), re.MULTILINE)[1])

    def reset(self):
        for module in sorted(self.unplugged):
            self.plug_in(module)
        for module in range(1, 5):
            self.scpi(module, "*RST;:OUTP OFF")

    def scpi(self, channel, line):
        with socket.create_connection(("127.0.0.1", self.port), timeout=30) as client:
            client.sendall(f":INST {channel};{line}\n".encode())
            reply = b""
            while not reply.endswith(b"\r\n"):
                part = client.recv(65536)
                if not part:
                    break
                reply += part
        text = reply.decode().strip()
        if "-ERR" in text or not text.endswith("+OK"):
            raise AssertionError(f"{line}: {text}")
        return text[:-3].rstrip(";")

    def lose_service(self):
        os.kill(self._process("service"), signal.SIGKILL)

    def restore_service(self):
        pass  # the launcher starts it again

    def lose_web(self):
        os.kill(self._process("web"), signal.SIGKILL)

    def restore_web(self):
        pass

    def warm(self, module, celsius):
        """Sets the temperature of a module."""
        self.ctl("temp", module, celsius)

    def _touch(self, module):
        """Somebody's query, by which the controller notices how a module is. True if it answers."""
        try:
            self.scpi(module, ":FREQ?")
            return True
        except AssertionError:
            return False

    def unplug(self, module):
        self.unplugged.add(module)
        self.ctl("module", module, "kill")
        self._touch(module)

    def plug_in(self, module):
        self.ctl("module", module, "start")
        end = time.monotonic() + START_S
        while not self._touch(module):
            if time.monotonic() > end:
                raise RuntimeError(f"module {module} does not come back")
            time.sleep(0.05)
        self.unplugged.discard(module)

    def close(self):
        self.launcher.send_signal(signal.SIGINT)
        try:
            self.launcher.wait(30)
        except subprocess.TimeoutExpired:
            self.launcher.kill()
            self.launcher.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

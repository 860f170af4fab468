#!/usr/bin/env python3
"""Serves the page and its interface with an instrument in memory: for work on the page and for its fast tests.

    tests/web/mock_server.py [--port 8081] [--charts FILE]

SIGUSR1 takes the instrument's service away and brings it back.
"""

import argparse
import contextlib
import json
import pathlib
import queue
import signal
import socket
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

import mock_state

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "web/page"
CHARTS = pathlib.Path("/usr/share/javascript/chart.js/chart.min.js")
TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css", ".js": "text/javascript", ".svg": "image/svg+xml"}
POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
          "base-uri 'none'; form-action 'none'; frame-ancestors 'none'")


class Problem(Exception):
    def __init__(self, status, detail, **members):
        super().__init__(detail)
        self.status = status
        self.members = members


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, format, *arguments):  # the name is the base class's
        pass

    def do_GET(self):
        self.answer()

    do_POST = do_PUT = do_PATCH = do_DELETE = do_GET

    def answer(self):
        parts = self.path.split("?")[0].strip("/").split("/")
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        try:
            if parts[:2] != ["api", "v1"]:
                self.file(parts)
            elif parts[2:] == ["events"]:
                self.stream()
            else:
                given = json.loads(body) if body else {}
                if self.command != "GET" and parts[2] != "session":
                    self.check_access()
                self.send(200, json.dumps(self.route(parts[2:], given)).encode())
        except Problem as problem:
            document = {"type": "about:blank", "title": "Refused", "status": problem.status, "detail": str(problem)}
            self.send(problem.status, json.dumps({**document, **problem.members}).encode(), "application/problem+json")
        except (BrokenPipeError, ConnectionResetError):
            self.close_connection = True

    def check_access(self):
        instrument = self.server.instrument
        token = self.headers.get("Authorization", "").removeprefix("Bearer ")
        if instrument.refusal and not (instrument.token and token == instrument.token):
            raise Problem(*instrument.refusal)

    def route(self, parts, given):
        instrument = self.server.instrument
        match (self.command, *parts):
            case ("GET", "instrument"):
                return instrument.document()
            case ("GET", "settings"):
                return {"settings": mock_state.settings_table()}
            case ("GET", "channels"):
                return {"channels": instrument.channels}
            case ("GET", "channels", number):
                return instrument.channel(int(number))
            case ("PATCH", "channels", number):
                return self.patch(int(number), given)
            case ("POST", "scpi"):
                started = time.monotonic()
                self.check_service()
                response, errors = instrument.scpi(given["channel"], given["line"])
                return {"response": response, "errors": errors, "duration_ms": 1e3 * (time.monotonic() - started)}
            case ("GET", "commands"):
                return {"commands": mock_state.commands()}
            case ("GET", "setups"):
                self.server.setups_gate.wait(timeout=30)
                return instrument.setups_document()
            case ("GET", "setups", number):
                return {"setup": int(number), "differences": instrument.differences(int(number))}
            case ("PUT", "setups", number):
                instrument.store(int(number))
                return {}
            case ("POST", "setups", number, "recall"):
                self.check_service()
                instrument.recall(int(number))
                return {}
            case ("DELETE", "setups", number):
                instrument.delete(int(number))
                return {}
            case ("GET", "history"):
                return instrument.history()
            case ("POST", "session"):
                if not instrument.password or given.get("password") != instrument.password:
                    raise Problem(401, "The password is wrong.")
                instrument.token = "an-unguessable-token"
                return {"token": instrument.token, "expires_s": 28800}
            case ("DELETE", "session"):
                instrument.token = None
                return {}
        raise Problem(404, "There is nothing at this path.")

    def check_service(self):
        if not self.server.instrument.reachable:
            raise Problem(503, "The instrument's service cannot be reached.")

    def patch(self, number, given):
        self.check_service()
        instrument = self.server.instrument
        self.server.gate.wait(timeout=10)
        channel = instrument.channel(number)
        if channel["failed"] or not channel["present"]:
            raise Problem(409, "The module does not answer.")
        errors = instrument.patch(number, given)
        if errors:
            raise Problem(422, "Some settings were refused.", errors=errors, channel=channel)
        return {"channel": channel}

    def file(self, parts):
        path = PAGE.joinpath(*parts) if parts != [""] else PAGE / "index.html"
        if parts == ["charts", "chart.js"]:
            path = self.server.charts
        if ".." in parts or not path.is_file():
            raise Problem(404, "There is nothing at this path.")
        self.send(200, path.read_bytes(), TYPES.get(path.suffix, "application/octet-stream"))

    def send(self, status, body, content_type="application/json"):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Content-Security-Policy", POLICY)
        self.send_header("X-Content-Type-Options", "nosniff")
        self.send_header("Cache-Control", "no-cache")
        self.end_headers()
        self.wfile.write(body)

    def stream(self):
        self.close_connection = True
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-store")
        self.end_headers()
        events = self.server.join()
        try:
            while True:
                try:
                    item = events.get(timeout=15)
                except queue.Empty:
                    item = ": keep-alive\n\n"
                if item is None:
                    return
                self.wfile.write(item.encode())
                self.wfile.flush()
        finally:
            self.server.leave(events)


class MockServer(ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 64

    def __init__(self, instrument, port=0, charts=CHARTS):
        super().__init__(("127.0.0.1", port), Handler)
        self.instrument = instrument
        self.charts = pathlib.Path(charts)
        self.gate = threading.Event()  # while it is clear, changes wait for the module's answer
        self.gate.set()
        self.setups_gate = threading.Event()  # while it is clear, the setups wait as for a command that runs
        self.setups_gate.set()
        self.viewers = []
        self.connections = set()
        instrument.changed = self.publish

    @property
    def url(self):
        return f"http://127.0.0.1:{self.server_address[1]}/"

    @staticmethod
    def text(event, data):
        return f"event: {event}\ndata: {json.dumps(data)}\n\n"

    def join(self):
        events = queue.Queue()
        with self.instrument.lock:
            events.put(self.text("instrument", self.instrument.document()))
            for channel in self.instrument.channels:
                events.put(self.text("channel", channel))
            if not self.instrument.reachable:
                events.put(self.text("service", {"reachable": False}))
            self.viewers.append(events)
        return events

    def leave(self, events):
        with self.instrument.lock:
            if events in self.viewers:
                self.viewers.remove(events)

    def publish(self, event, data):
        with self.instrument.lock:
            for viewer in self.viewers:
                viewer.put(self.text(event, data))

    def start(self):
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True).start()
        return self

    def stop(self):
        """As if the process had ended: the listener and every connection are closed, idle ones too."""
        self.shutdown()
        self.server_close()
        with self.instrument.lock:
            for viewer in self.viewers:
                viewer.put(None)
            for connection in self.connections:
                with contextlib.suppress(OSError):  # the client has closed it
                    connection.shutdown(socket.SHUT_RDWR)

    def process_request(self, request, client_address):
        with self.instrument.lock:
            self.connections.add(request)
        super().process_request(request, client_address)

    def shutdown_request(self, request):
        with self.instrument.lock:
            self.connections.discard(request)
        super().shutdown_request(request)

    def handle_error(self, request, client_address):
        if not isinstance(sys.exc_info()[1], ConnectionError):
            super().handle_error(request, client_address)


def main():
    parser = argparse.ArgumentParser(description="Serves the page with an instrument in memory.")
    parser.add_argument("--port", type=int, default=8081)
    parser.add_argument("--charts", default=CHARTS)
    options = parser.parse_args()
    server = MockServer(mock_state.Instrument(), options.port, options.charts).start()
    signal.signal(signal.SIGUSR1, lambda *_: server.instrument.reach(not server.instrument.reachable))
    print(f"listening on {server.url}", flush=True)
    try:
        while True:
            time.sleep(1)
            server.instrument.drift()
    except KeyboardInterrupt:
        server.stop()


if __name__ == "__main__":
    main()

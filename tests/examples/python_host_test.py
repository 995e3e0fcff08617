#!/usr/bin/env python3
"""LIBRARY: runs examples/host.py against a server of its own, and reads what arrived as any server would."""
import http.server, json, pathlib, socket, subprocess, sys, tempfile, threading, urllib.parse

library, host = sys.argv[1], pathlib.Path(__file__).parents[2] / "examples" / "host.py"
bodies = []


class Receiver(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        bodies.append(self.rfile.read(int(self.headers["Content-Length"])))
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, *_):
        pass


def has_route():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:  # connecting it sends nothing
        return probe.connect_ex(("192.0.2.1", 9)) == 0


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Receiver)
threading.Thread(target=server.serve_forever, daemon=True).start()
with tempfile.TemporaryDirectory() as folder:
    words = [sys.executable, host, library, f"http://127.0.0.1:{server.server_port}/", folder]
    done = subprocess.run(words + ([] if has_route() else ["offline"]), stdout=subprocess.PIPE, text=True, timeout=100)
    left = sorted(path.name for path in pathlib.Path(folder).iterdir())
server.shutdown()
lines = [line for body in bodies for line in urllib.parse.parse_qs(body.decode())["data"][0].splitlines()]
events = [tuple(json.loads(line)[-2:]) for line in lines]
machine = events.pop()
assert done.returncode == 0, done.stdout
assert events == [
    ("launch", {"user": "Zo\u00eb", "count": 3, "ratio": 0.5, "first": True, "none": None, "largest": 2**64 - 1,
                "text": "a NUL: \0, a quote: \""}),
    ("window", {"size": {"width": 640, "height": 480}, "tabs": ["a", {"title": "b", "ids": [1, [2, 3]]}]})], events
assert machine[0] == "machine" and machine[1]["processors"] >= 1, machine
assert done.stdout.count("logged {") == 3 and "\n32 facts" in done.stdout, done.stdout
assert left == ["id"], left
print("three events arrived, nothing is left")

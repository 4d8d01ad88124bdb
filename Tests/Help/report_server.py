"""Takes reports on a free port of the loopback interface, which it prints. report_server.py FOLDER BEHAVIOUR

Keeps in the folder what comes: request (its header), requests (a letter for each), 00.head, 00 and so on (header and
contents of each part), zip/NAME (what the zipped part holds).
"""

import http.server
import io
import pathlib
import signal
import socket
import sys
import threading
import zipfile

folder, behaviour = pathlib.Path(sys.argv[1]), sys.argv[2]


def keep(boundary, body):
    with open(folder / "requests", "a") as requests:
        requests.write("r")
    assert body.startswith(b"--" + boundary + b"\r\n") and body.endswith(b"\r\n--" + boundary + b"--\r\n"), body
    for number, part in enumerate((b"\r\n" + body).split(b"\r\n--" + boundary)[1:-1]):
        head, contents = part.split(b"\r\n\r\n", 1)
        (folder / f"{number:02}.head").write_bytes(head.strip())
        (folder / f"{number:02}").write_bytes(contents)
        if contents.startswith(b"PK"):
            zipfile.ZipFile(io.BytesIO(contents)).extractall(folder / "zip")


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        (folder / "request").write_text(f"{self.requestline}\n{self.headers}")
        if behaviour == "break":  # During the body.
            return self.connection.shutdown(socket.SHUT_RDWR)
        if behaviour == "slow":  # Makes progress only with each further signal.
            body = b""
            while len(body) < int(self.headers["Content-Length"]):
                signal.sigwait([signal.SIGUSR1])
                body += self.rfile.read(min(150_000, int(self.headers["Content-Length"]) - len(body)))
            self.rfile = io.BytesIO(body)
        keep(self.headers.get_boundary().encode(), self.rfile.read(int(self.headers["Content-Length"])))
        if behaviour == "hang":
            threading.Event().wait()
        self.send_response({"fail": 500, "redirect": 307}.get(behaviour, 200))
        self.send_header("Location", f"http://127.0.0.1:{self.server.server_port}/elsewhere")
        for number in range(1000 if behaviour == "talk" else 0):
            self.send_header(f"X-{number}", "x" * 1024)
        self.send_header("Content-Length", str(1 << 40 if behaviour == "flood" else 0))
        self.end_headers()
        while behaviour == "flood":
            self.wfile.write(b"flood " * 4096)


signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGUSR1])  # Until a handler waits for it.
server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_port, flush=True)
if behaviour == "full":  # Fills the backlog, so that no connection is accepted.
    server.socket.listen(0)
    others = [socket.socket(type=socket.SOCK_STREAM | socket.SOCK_NONBLOCK) for _ in range(4)]
    for other in others:
        other.connect_ex(server.server_address)
    threading.Event().wait()
server.serve_forever()

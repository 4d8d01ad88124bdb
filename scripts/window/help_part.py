"""The Help tab: a report with the zipped log reaches a web server."""

import email
import email.policy
import http.server
import io
import threading
import zipfile

from accessible import Missing, is_called, text_of
from desktop import new_home
from programs import fake_daemon, window

COMMENT = "Figures.zip never arrives.\nI expected it – after a day – in the backup."
PARTS = ["to", "to-domain", "subject", "from", "version", "os", "category", "comment", "serial", "KelvaneLog"]


class Server:
    """A server that stores the posted requests."""

    def __init__(self):
        posts = self.posts = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                posts.append((self.path, self.headers["Content-Type"], body))
                self.send_response(200)
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
        self.name = f"127.0.0.1:{self.server.server_port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        self.server.shutdown()
        self.server.server_close()


def run(build):
    with new_home() as home, fake_daemon(build, home) as daemon:
        log = home / "daemon.log"
        log.write_text("12:00 began\n12:01 cannot read Figures.zip\n")
        server = Server()
        try:
            daemon.play({"answer": "serverURL", "value": server.name})
            bundle = build.bundle_with({"Kelvane Log Path": str(log)}, home)
            with window(build, daemon, bundle) as shown:
                write_report(shown, server.name)
                send(shown)
            check_report(server.posts, log)
        finally:
            server.close()
        if list((home / ".tmp").glob("*.zip")):
            raise Missing("a temporary folder without the zipped log")


def write_report(shown, server):
    shown.select_tab("Help")
    shown.press("Get Help…")
    shown.press("Send a Report…")
    invitation = text_of(shown.find("the invitation to chat", lambda node: node.name == "Support chat"))
    print(f"  The invitation: {invitation!r}")
    if "Click to chat with a customer support representative" not in invitation or server not in invitation:
        raise Missing("the invitation with its link")
    shown.write(shown.labelled("text", "What happened, and what did you expect instead?"), COMMENT)
    shown.choose(shown.labelled("combo box", "Category:"), "Backing up")


def send(shown):
    shown.press("Send")
    shown.gone("the sheet", is_called("push button", "Send"))
    shown.gone("the note that it is being sent", lambda node: node.name == "Sending your report…")
    shown.press("Get Help…")  # The window accepts input again.
    shown.press("Close")
    print("  Sent: the sheet is closed, and the window takes input")


def check_report(posts, log):
    if len(posts) != 1:
        raise Missing(f"one report; {len(posts)} came")
    path, kind, body = posts[0]
    message = email.message_from_bytes(b"Content-Type: " + kind.encode() + b"\r\n\r\n" + body,
                                       policy=email.policy.HTTP)
    parts = {part.get_param("name", header="content-disposition"): part.get_payload(decode=True)
             for part in message.iter_parts()}
    print(f"  {path} received {list(parts)}")
    for name in PARTS[:-1]:
        print(f"    {name}: {parts.get(name, b'').decode()!r}")
    if path != "/Manage/ReportError.aspx" or list(parts) != PARTS:
        raise Missing(f"the parts {PARTS}, at their address")
    if parts["comment"].decode() != COMMENT:
        raise Missing("the comment as it was written")
    with zipfile.ZipFile(io.BytesIO(parts["KelvaneLog"])) as archive:
        names = archive.namelist()
        print(f"    KelvaneLog: a zip of {names}")
        if archive.read(names[0]) != log.read_bytes():
            raise Missing("the log, byte for byte")

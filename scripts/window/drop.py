"""Drops files on a window as a file manager does: the drag-and-drop protocol of X, without a pointer.

    scripts/window/drop.py X Y PATH...

A program of its own, because a refusal of the display ends it.
"""

import contextlib
import ctypes
import pathlib
import socket
import sys
import time

TIMEOUT = 20  # seconds
PACE = 0.05  # Seconds between two polls.

VERSION = 5
CLIENT_MESSAGE, SELECTION_NOTIFY, SELECTION_REQUEST = 33, 31, 30  # Event types of the X protocol.
REPLACE = 0  # The mode in which a property is changed.


class ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("data", ctypes.c_long * 5)]


class SelectionRequest(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("owner", ctypes.c_ulong), ("requestor", ctypes.c_ulong),
                ("selection", ctypes.c_ulong), ("target", ctypes.c_ulong), ("property", ctypes.c_ulong),
                ("time", ctypes.c_ulong)]


class SelectionNotify(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("requestor", ctypes.c_ulong), ("selection", ctypes.c_ulong),
                ("target", ctypes.c_ulong), ("property", ctypes.c_ulong), ("time", ctypes.c_ulong)]


class Event(ctypes.Union):
    _fields_ = [("type", ctypes.c_int), ("message", ClientMessage), ("request", SelectionRequest),
                ("notify", SelectionNotify), ("room", ctypes.c_long * 24)]


def library():
    x11 = ctypes.CDLL("libX11.so.6")
    x11.XOpenDisplay.restype = ctypes.c_void_p
    number = ctypes.c_ulong
    takes = {"XDefaultRootWindow": [], "XPending": [], "XFlush": [], "XCloseDisplay": [],
             "XInternAtom": [ctypes.c_char_p, ctypes.c_int],
             "XCreateSimpleWindow": [number] + [ctypes.c_int] * 2 + [ctypes.c_uint] * 3 + [number] * 2,
             "XSetSelectionOwner": [number] * 3,
             "XSendEvent": [number, ctypes.c_int, ctypes.c_long, ctypes.c_void_p],
             "XNextEvent": [ctypes.c_void_p],
             "XChangeProperty": [number] * 3 + [ctypes.c_int] * 2 + [ctypes.c_char_p, ctypes.c_int],
             "XTranslateCoordinates": [number] * 2 + [ctypes.c_int] * 2 + [ctypes.c_void_p] * 3}
    for name, kinds in takes.items():
        function = getattr(x11, name)
        function.argtypes = [ctypes.c_void_p, *kinds]
        function.restype = number if name in ("XDefaultRootWindow", "XInternAtom", "XCreateSimpleWindow") else ctypes.c_int
    return x11


class Drag:
    """The part of a file manager in drag and drop, from the start of the drag to the drop."""

    def __init__(self, paths):
        self.x11 = library()
        self.display = self.x11.XOpenDisplay(None)
        if not self.display:
            raise SystemExit("there is no display to drop files on")
        self.root = self.x11.XDefaultRootWindow(self.display)
        self.window = self.x11.XCreateSimpleWindow(self.display, self.root, 0, 0, 1, 1, 0, 0, 0)
        self.payload = "".join(pathlib.Path(path).as_uri() + "\r\n" for path in paths).encode()
        self.payload = self.payload.replace(b"file:///", b"file://" + socket.gethostname().encode() + b"/")
        self.x11.XSetSelectionOwner(self.display, self.atom("XdndSelection"), self.window, 0)

    def close(self):
        self.x11.XCloseDisplay(self.display)

    def atom(self, name):
        return self.x11.XInternAtom(self.display, name.encode(), 0)

    def window_at(self, x, y):
        child, inner_x, inner_y = ctypes.c_ulong(), ctypes.c_int(), ctypes.c_int()
        self.x11.XTranslateCoordinates(self.display, self.root, self.root, x, y, ctypes.byref(inner_x),
                                       ctypes.byref(inner_y), ctypes.byref(child))
        if not child.value:
            raise SystemExit(f"there is no window at {x}, {y}")
        return child.value

    def send(self, target, message, *data):
        event = Event()
        event.message = ClientMessage(CLIENT_MESSAGE, 0, 1, self.display, target, self.atom(message), 32,
                                      (ctypes.c_long * 5)(self.window, *data))
        self.x11.XSendEvent(self.display, target, 0, 0, ctypes.byref(event))
        self.x11.XFlush(self.display)

    def next_message(self, name):
        """Answers requests for the files until the message arrives."""
        deadline = time.monotonic() + TIMEOUT
        event = Event()
        while time.monotonic() < deadline:
            if not self.x11.XPending(self.display):
                time.sleep(PACE)
                continue
            self.x11.XNextEvent(self.display, ctypes.byref(event))
            if event.type == SELECTION_REQUEST:
                self.hand_over(event.request)
            elif event.type == CLIENT_MESSAGE and event.message.message_type == self.atom(name):
                return list(event.message.data)
        raise SystemExit(f"the window does not answer: {name}")

    def hand_over(self, request):
        if request.target == self.atom("text/uri-list"):
            self.x11.XChangeProperty(self.display, request.requestor, request.property, request.target, 8, REPLACE,
                                     self.payload, len(self.payload))
        answer = Event()
        answer.notify = SelectionNotify(SELECTION_NOTIFY, 0, 1, self.display, request.requestor, request.selection,
                                        request.target, request.property, request.time)
        self.x11.XSendEvent(self.display, request.requestor, 0, 0, ctypes.byref(answer))
        self.x11.XFlush(self.display)

    def drop_at(self, x, y):
        target = self.window_at(x, y)
        self.send(target, "XdndEnter", VERSION << 24, self.atom("text/uri-list"), 0, 0)
        self.send(target, "XdndPosition", 0, x << 16 | y, 0, self.atom("XdndActionCopy"))
        status = self.next_message("XdndStatus")
        if not status[1] & 1:
            raise SystemExit("the drop target does not accept the files")
        self.send(target, "XdndDrop", 0, 0, 0, 0)
        if not self.next_message("XdndFinished")[1] & 1:
            raise SystemExit("the window has not taken the files")


if __name__ == "__main__":
    with contextlib.closing(Drag(sys.argv[3:])) as drag:
        drag.drop_at(int(sys.argv[1]), int(sys.argv[2]))

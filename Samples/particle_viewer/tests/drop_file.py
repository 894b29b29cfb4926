#!/usr/bin/env python3
"""Drops a file on a window of the X server, as a file manager does: drop_file.py WINDOW PATH.

Speaks version 5 of the XDND protocol as the source of the drag, and ends once the window says that it has finished.
"""
import sys
import time

from Xlib import X, display
from Xlib.protocol import event

connection = display.Display()
target = connection.create_resource_object("window", int(sys.argv[1]))
uri = ("file://" + sys.argv[2] + "\r\n").encode()
atom = connection.intern_atom
source = connection.screen().root.create_window(0, 0, 1, 1, 0, connection.screen().root_depth)
source.set_selection_owner(atom("XdndSelection"), X.CurrentTime)
uri_list = atom("text/uri-list")


def tell(message, *data):
    target.send_event(
        event.ClientMessage(window=target, client_type=atom(message), data=(32, [source.id, *data])), event_mask=0
    )
    connection.flush()


def await_message(name):
    end = time.time() + 60
    while time.time() < end:
        if not connection.pending_events():
            time.sleep(0.02)
            continue
        got = connection.next_event()
        if got.type == X.SelectionRequest:
            got.requestor.change_property(got.property, uri_list, 8, uri)
            got.requestor.send_event(
                event.SelectionNotify(
                    time=got.time,
                    requestor=got.requestor,
                    selection=got.selection,
                    target=got.target,
                    property=got.property,
                )
            )
            connection.flush()
        if got.type == X.ClientMessage and got.client_type == atom(name):
            return
    sys.exit("drop_file.py: no " + name)


tell("XdndEnter", 5 << 24, uri_list, 0, 0)
tell("XdndPosition", 0, 50 << 16 | 50, X.CurrentTime, atom("XdndActionCopy"))
await_message("XdndStatus")
tell("XdndDrop", 0, X.CurrentTime, 0, 0)
await_message("XdndFinished")

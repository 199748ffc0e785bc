#!/usr/bin/env python3
"""Closed doors on the deployment's server addresses, for the Windows suite under Wine.

On Windows a refused connection is not reported to the wait for writability that the network
client uses: it shows as a time-out, seconds later. Tests written against servers that are
simply absent would wait out that time-out at every attempt. This keeps a listener on each
address and port that answers every request by resetting its connection, which the client sees
as the prompt failure that an absent server gives on Linux.

    closed_doors.py start <pid file> <ports> <addresses>   (comma-separated lists)
    closed_doors.py stop <pid file>
"""
import os
import selectors
import signal
import socket
import struct
import sys
import time


def serve(listeners):
    # A connection is reset once its request (or its end) arrives, not at once: a reset that
    # beat the end of the client's connect would leave the connect itself failed, which Windows
    # again reports only as a time-out.
    selector = selectors.DefaultSelector()
    for listener in listeners:
        selector.register(listener, selectors.EVENT_READ, "listener")
    while True:
        for key, _ in selector.select():
            if key.data == "listener":
                try:
                    connection, _ = key.fileobj.accept()
                except OSError:
                    continue
                selector.register(connection, selectors.EVENT_READ, "connection")
            else:
                selector.unregister(key.fileobj)
                key.fileobj.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                                       struct.pack("ii", 1, 0))
                key.fileobj.close()


def start(pid_file, ports, addresses):
    listeners = []
    for address in addresses.split(","):
        for port in ports.split(","):
            listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
            listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                listener.bind((address, int(port)))
            except OSError:  # taken (a server of its own) or already listed
                listener.close()
                continue
            listener.listen(64)
            listeners.append(listener)
    if os.fork() == 0:
        os.setsid()
        null = os.open(os.devnull, os.O_RDWR)
        for stream in (0, 1, 2):  # the caller waits for its output pipes to close
            os.dup2(null, stream)
        signal.signal(signal.SIGTERM, lambda *_: os._exit(0))
        with open(pid_file + ".new", "w") as out:
            out.write(str(os.getpid()))
        os.replace(pid_file + ".new", pid_file)
        serve(listeners)
    for listener in listeners:
        listener.close()
    while not os.path.exists(pid_file):
        time.sleep(0.01)


def stop(pid_file):
    try:
        with open(pid_file) as source:
            os.kill(int(source.read()), signal.SIGTERM)
    except (OSError, ValueError):
        pass
    if os.path.exists(pid_file):
        os.remove(pid_file)


if __name__ == "__main__":
    if sys.argv[1] == "start":
        stop(sys.argv[2])
        start(*sys.argv[2:5])
    else:
        stop(sys.argv[2])

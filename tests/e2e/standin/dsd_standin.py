#!/usr/bin/env python3
# A daemon that is not dsd, to check that the end-to-end suite fails without
# it: DSD_TEST_DAEMON=<this file> makes the harness start it instead.
# DSD_STANDIN_MODE picks the fault: "close" reads the request and closes
# without an answer (the default), "silent" keeps the connection open and
# never answers, "code" answers every request {"error_code": -40101}.
import os
import socket
import struct
import threading


def read_records(conn):
    for _ in range(2):
        head = conn.recv(8, socket.MSG_WAITALL)
        if len(head) < 8:
            return
        _, length = struct.unpack("!Ii", head)
        while length > 0:
            chunk = conn.recv(min(length, 65536))
            if not chunk:
                return
            length -= len(chunk)


def serve(conn, mode):
    conn.settimeout(30)
    try:
        read_records(conn)
        if mode == "silent":
            conn.recv(1)
        elif mode == "code":
            body = b'{"error_code": -40101}'
            conn.sendall(struct.pack("!II", 3, len(body)) + body)
    except OSError:
        pass
    conn.close()


def main():
    mode = os.environ.get("DSD_STANDIN_MODE", "close")
    path = os.environ["DSD_ROOT"] + "/tmp/dsd_server.sock"
    if os.path.exists(path):
        os.unlink(path)
    srv = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    srv.bind(path)
    srv.listen(16)
    while True:
        conn, _ = srv.accept()
        threading.Thread(target=serve, args=(conn, mode), daemon=True).start()


main()

#!/usr/bin/env python3
"""Sends N get requests to dsd, one connection each, as the real clients do."""
import json
import socket
import struct
import sys

def request(path, body):
    info = json.dumps({"user": "admin", "group": 1, "client": 3}).encode()
    req = json.dumps(body).encode()
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
        s.settimeout(30)
        s.connect(path)
        s.sendall(struct.pack(">Ii", 1, len(info)) + info + struct.pack(">Ii", 2, len(req)) + req)
        head = b""
        while len(head) < 8:
            chunk = s.recv(8 - len(head))
            if not chunk:
                raise RuntimeError("connection closed before the response")
            head += chunk
        _, length = struct.unpack(">Ii", head)
        data = b""
        while len(data) < length:
            chunk = s.recv(length - len(data))
            if not chunk:
                break
            data += chunk
        return json.loads(data)

def main():
    path, count = sys.argv[1], int(sys.argv[2])
    body = {"method": "get", "video": {"name": ["chn1_main", "chn2_minor"]}}
    for i in range(count):
        request(path, body)
    print(f"{count} requests answered")

if __name__ == "__main__":
    main()

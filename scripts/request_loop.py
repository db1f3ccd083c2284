#!/usr/bin/env python3
"""Sends N requests to dsd, one connection each, as the real clients do: mostly
one-section gets, with sets (light commit) and whole-package gets of the
128-channel image package mixed in."""
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
    small = {"method": "get", "video": {"name": ["chn1_main", "chn2_minor"]}}
    kinds = ["switch", "common", "day", "night", "image_list", "expose",
             "supplement_lamp", "clear_licence", "smart_white_lamp"]
    whole = {"method": "get", "image": {"name": [f"chn{c}_{k}" for c in range(1, 129) for k in kinds]}}
    for i in range(count):
        if i % 50 == 49:
            request(path, whole)
        elif i % 10 == 3:
            request(path, {"method": "set", "image": {"chn5_day": {"loop": str(i)}}})
        else:
            request(path, small)
    print(f"{count} requests answered")

if __name__ == "__main__":
    main()

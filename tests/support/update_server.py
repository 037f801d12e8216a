#!/usr/bin/python3
"""The update-information server's side, for the update check's tests.

    update_server.py MODE EXPECTED_JSON

Listens on 127.0.0.1 (a free port, printed first as "port N"), takes one
connection, reads the 180-byte request and checks every field of it against
what it works out itself (the user's full name from the password database)
and what EXPECTED_JSON names (version value, locale, system value). It prints
one JSON line with the problems it found, then answers as MODE says:

  newer           a newer version, same build
  samehigherbuild the same version with a higher build number
  lowerhigherbuild a lower version with a higher build number
  same            the same version and build
  fileurl         a newer version whose page is file:///etc/passwd
  short           a reply of 367 bytes, then closes
  silent          accepts and never answers
  backlog         never accepts; its queue is full, so a connect hangs
"""
import json
import os
import pwd
import socket
import struct
import sys
import time

REQUEST_SIZE = 180
REPLY_SIZE = 368


def text_field(record, offset, size):
    field = record[offset:offset + size]
    end = field.find(b"\0")
    problems = []
    if end < 0:
        problems.append(f"field at {offset} is not NUL-terminated")
        end = size
    if any(field[end:]):
        problems.append(f"field at {offset} has bytes after its text")
    return field[:end], problems


def check_request(record, expected):
    problems = []
    if len(record) != REQUEST_SIZE:
        return [f"request of {len(record)} bytes"]
    if record[0:4] != b"C001":
        problems.append(f"request code {record[0:4]!r}")
    version = struct.unpack(">I", record[4:8])[0]
    if version != expected["version"]:
        problems.append(f"version {version:#x}, expected {expected['version']:#x}")
    signature, p = text_field(record, 8, 32)
    problems += p
    if signature != b"????":
        problems.append(f"signature {signature!r}")
    for offset in (40, 72):
        if any(record[offset:offset + 32]):
            problems.append(f"field at {offset} is not empty")
    entry = pwd.getpwuid(os.getuid())
    name = entry.pw_gecos.split(",")[0] or entry.pw_name
    full_name, p = text_field(record, 104, 32)
    problems += p
    # Cut to its field on a character boundary.
    if full_name != name.encode()[:31].decode("utf-8", "ignore").encode():
        problems.append(f"full name {full_name!r}, expected {name!r}")
    locale, p = text_field(record, 136, 32)
    problems += p
    if locale.decode() != expected["locale"]:
        problems.append(f"locale {locale!r}, expected {expected['locale']!r}")
    system = struct.unpack(">I", record[168:172])[0]
    if system != expected["system"]:
        problems.append(f"system value {system:#x}, expected {expected['system']:#x}")
    if any(record[172:180]):
        problems.append("bytes 172 to 180 are not zero")
    return problems


def reply(version, name, url, build):
    record = struct.pack(">II", 0x52303031, version)
    record += name.encode().ljust(32, b"\0")
    record += url.encode().ljust(64, b"\0")
    record += build.encode().ljust(264, b"\0")
    assert len(record) == REPLY_SIZE
    return record


def main():
    mode = sys.argv[1]
    expected = json.loads(sys.argv[2])
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    # UPDATE_SERVER_PORT asks for a given port; without it, any free one.
    try:
        listener.bind(("127.0.0.1", int(os.environ.get("UPDATE_SERVER_PORT", "0"))))
    except OSError as error:
        print(f"no port: {error}", flush=True)
        return
    if mode == "backlog":
        # A queue of one, taken by a connection of our own: the kernel drops
        # every further handshake, so the next connect waits.
        listener.listen(0)
        filler = socket.create_connection(listener.getsockname())
        print(f"port {listener.getsockname()[1]}", flush=True)
        time.sleep(600)
        filler.close()
        return
    listener.listen(1)
    print(f"port {listener.getsockname()[1]}", flush=True)
    connection, _ = listener.accept()
    record = b""
    connection.settimeout(20)
    while len(record) < REQUEST_SIZE:
        chunk = connection.recv(REQUEST_SIZE - len(record))
        if not chunk:
            break
        record += chunk
    print(json.dumps({"problems": check_request(record, expected)}), flush=True)
    running = expected["version"]
    build = expected["build"]
    url = "http://127.0.0.1/orvex/update.html"
    if mode == "newer":
        connection.sendall(reply(running + 1, "Orvex", url, str(build)))
    elif mode == "samehigherbuild":
        connection.sendall(reply(running, "Orvex", url, str(build + 1)))
    elif mode == "lowerhigherbuild":
        connection.sendall(reply(running - 1, "Orvex", url, str(build + 1)))
    elif mode == "same":
        connection.sendall(reply(running, "Orvex", url, str(build)))
    elif mode == "fileurl":
        connection.sendall(reply(running + 1, "Orvex", "file:///etc/passwd", str(build)))
    elif mode == "short":
        connection.sendall(reply(running + 1, "Orvex", url, str(build))[:REPLY_SIZE - 1])
    elif mode == "silent":
        time.sleep(600)
    connection.close()


if __name__ == "__main__":
    main()

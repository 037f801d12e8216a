#!/usr/bin/python3
"""An independent peer of the command channel, written from its wire format.

  channel_peer.py client PORT JSON    send the tagged-JSON dictionary framed, print the answer
  channel_peer.py server [COUNT] [early-close]
                                      serve COUNT requests (1): print the port, then for
                                      each request its bytes in hex, answering {"got": request};
                                      with early-close the answer goes without its boundary
                                      token and the connection is closed at once
  channel_peer.py idle PORT COUNT     open COUNT connections that never send, hold them
                                      until standard input closes

Framing: the server greets with its boundary token; a request is a binary
property list followed by the token; an answer likewise.
"""
import json
import plistlib
import socket
import sys

from plist_peer import tag, untag

BOUNDARY = b"****123456789ABCDEFG*****"


def read_until(sock, token, limit=16 << 20):
    data = b""
    while token not in data:
        chunk = sock.recv(65536)
        if not chunk:
            break
        data += chunk
        if len(data) > limit:
            raise ValueError("no token")
    return data


def client(port, request):
    with socket.create_connection(("127.0.0.1", port), timeout=20) as s:
        greeting = read_until(s, BOUNDARY)
        if greeting != BOUNDARY:
            sys.exit("greeting was %r" % greeting)
        s.sendall(plistlib.dumps(request, fmt=plistlib.FMT_BINARY) + BOUNDARY)
        answer = read_until(s, BOUNDARY)
        body = answer.split(BOUNDARY, 1)[0]
        json.dump(tag(plistlib.loads(body)), sys.stdout)


def server(count, early_close=False):
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        listener.listen(4)
        print(listener.getsockname()[1], flush=True)
        for _ in range(count):
            conn, _ = listener.accept()
            with conn:
                conn.sendall(BOUNDARY)
                raw = read_until(conn, BOUNDARY)
                body = raw.split(BOUNDARY, 1)[0]
                print(raw.hex(), flush=True)
                request = plistlib.loads(body)
                answer = plistlib.dumps({"got": request}, fmt=plistlib.FMT_BINARY)
                if early_close:
                    conn.sendall(answer)
                    conn.shutdown(socket.SHUT_WR)
                    continue
                if request.get("willReceiveData"):
                    conn.sendall(answer + BOUNDARY)
                # The client closes after reading the answer.
                conn.settimeout(10)
                try:
                    while conn.recv(65536):
                        pass
                except OSError:
                    pass


def idle(port, count):
    held = [socket.create_connection(("127.0.0.1", port)) for _ in range(count)]
    print("open", flush=True)
    sys.stdin.read()
    for s in held:
        s.close()


def main():
    mode = sys.argv[1]
    if mode == "client":
        client(int(sys.argv[2]), untag(json.loads(sys.argv[3])))
    elif mode == "server":
        server(int(sys.argv[2]) if len(sys.argv) > 2 else 1, "early-close" in sys.argv[3:])
    elif mode == "idle":
        idle(int(sys.argv[2]), int(sys.argv[3]))
    else:
        sys.exit("unknown mode " + mode)


if __name__ == "__main__":
    main()

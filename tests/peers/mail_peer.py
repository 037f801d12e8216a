#!/usr/bin/python3
"""Mail servers and checks for the mail agent's tests, on 127.0.0.1.

  smtp PORT STORE [--user U --password P] [--no-auth] [--exclude-login]
       [--refuse mail|rcpt|message]
      Debian's aiosmtpd. AUTH LOGIN is required (PLAIN is never offered);
      each accepted message is written to STORE/<n>.eml as received.
  scripted PORT FAIL
      A minimal SMTP server that answers every step with success except FAIL:
      greeting, user, data (refused), or quit (the connection is reset right
      after the message is accepted).
  pop PORT LOG FAIL
      A minimal POP3 server; FAIL is greeting, user, pass or none. Every line
      it receives is appended to LOG.
  blackhole PORT...
      Listening sockets whose accept queue is full, so a connect gets no answer.
  parse EML OUTDIR
      Parses a stored message with the email package; prints its headers and
      parts as JSON and writes each attachment's decoded bytes to OUTDIR.
  b64 FILE...
      Prints, as JSON, each file's base64 forms computed by Python's base64.

The servers print "ready" once they listen and run until killed; a port
already taken makes them print "port-taken" and exit with status 3.
"""
import asyncio
import base64
import email
import email.policy
import errno
import json
import os
import socket
import sys
import threading
import logging
import warnings

warnings.simplefilter("ignore")
logging.disable(logging.CRITICAL)


def port_taken_exit():
    print("port-taken", flush=True)
    sys.exit(3)


def listen(port, backlog=5):
    s = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    try:
        s.bind(("127.0.0.1", port))
    except OSError as e:
        if e.errno == errno.EADDRINUSE:
            port_taken_exit()
        raise
    s.listen(backlog)
    return s


def smtp(args):
    from aiosmtpd.controller import Controller
    from aiosmtpd.smtp import AuthResult, LoginPassword

    port, store = int(args[0]), args[1]
    options = args[2:]
    user = options[options.index("--user") + 1] if "--user" in options else "Orvex"
    password = options[options.index("--password") + 1] if "--password" in options else "secret"
    refuse = options[options.index("--refuse") + 1] if "--refuse" in options else ""
    # Controller binds itself; check first so a taken port is reported clearly.
    listen(port).close()

    class Handler:
        count = 0

        async def handle_DATA(self, server, session, envelope):
            if refuse == "message":
                return "554 5.6.0 Message refused by the test"
            Handler.count += 1
            path = os.path.join(store, "%d.eml" % Handler.count)
            with open(path + ".part", "wb") as f:
                f.write(envelope.original_content)
            os.rename(path + ".part", path)
            return "250 2.0.0 OK"

    if refuse == "mail":
        async def handle_MAIL(self, server, session, envelope, address, mail_options):
            return "550 5.7.1 Sender refused by the test"
        Handler.handle_MAIL = handle_MAIL
    if refuse == "rcpt":
        async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
            return "550 5.1.1 Recipient refused by the test"
        Handler.handle_RCPT = handle_RCPT

    def authenticator(server, session, envelope, mechanism, auth_data):
        ok = (isinstance(auth_data, LoginPassword) and auth_data.login == user.encode()
              and auth_data.password == password.encode())
        return AuthResult(success=ok, handled=False)

    excluded = ["PLAIN"] + (["LOGIN"] if "--exclude-login" in options else [])
    auth = "--no-auth" not in options
    controller = Controller(Handler(), hostname="127.0.0.1", port=port,
                            authenticator=authenticator, auth_required=auth,
                            auth_require_tls=False, auth_exclude_mechanism=excluded,
                            data_size_limit=200 * 1024 * 1024)
    controller.start()
    print("ready", flush=True)
    threading.Event().wait()


def read_line(conn, buffer):
    while b"\r\n" not in buffer[0]:
        chunk = conn.recv(65536)
        if not chunk:
            return None
        buffer[0] += chunk
    line, buffer[0] = buffer[0].split(b"\r\n", 1)
    return line


def scripted(args):
    port, fail = int(args[0]), args[1]
    server = listen(port)
    print("ready", flush=True)
    held = []
    while True:
        conn, _ = server.accept()
        buffer = [b""]
        if fail == "silent":
            # Accepts and never says a word, as a wedged server does.
            held.append(conn)
            continue
        if fail == "greeting":
            conn.sendall(b"554 5.3.2 Not accepting mail\r\n")
            conn.close()
            continue
        conn.sendall(b"220 scripted ESMTP\r\n")
        expecting_user = False
        greeted = False
        while True:
            line = read_line(conn, buffer)
            if line is None:
                break
            verb = line.split(b" ")[0].upper()
            if expecting_user:
                expecting_user = False
                if fail == "user":
                    conn.sendall(b"535 5.7.8 Unknown user\r\n")
                else:
                    conn.sendall(b"334 UGFzc3dvcmQ6\r\n")
                    read_line(conn, buffer)
                    conn.sendall(b"235 2.7.0 OK\r\n")
            elif verb == b"EHLO" and fail == "ehlo":
                # An old server: no extensions, so the client must say HELO.
                conn.sendall(b"502 5.5.2 Not implemented\r\n")
            elif verb == b"EHLO":
                greeted = True
                conn.sendall(b"250-scripted\r\n250-AUTH LOGIN\r\n250 HELP\r\n")
            elif verb == b"HELO" and fail == "ehlo":
                greeted = True
                conn.sendall(b"250 scripted\r\n")
            elif verb in (b"MAIL", b"RCPT") and not greeted:
                conn.sendall(b"503 5.5.1 Say HELO first\r\n")
            elif verb == b"AUTH":
                conn.sendall(b"334 VXNlcm5hbWU6\r\n")
                expecting_user = True
            elif verb in (b"MAIL", b"RCPT"):
                conn.sendall(b"250 OK\r\n")
            elif verb == b"DATA":
                if fail == "data":
                    conn.sendall(b"554 5.5.1 No valid recipients\r\n")
                    continue
                conn.sendall(b"354 End data with <CR><LF>.<CR><LF>\r\n")
                while b"\r\n.\r\n" not in buffer[0]:
                    chunk = conn.recv(65536)
                    if not chunk:
                        break
                    buffer[0] += chunk
                buffer[0] = buffer[0].split(b"\r\n.\r\n", 1)[1]
                if fail == "silent-after-data":
                    held.append(conn)
                    conn = None
                    break
                conn.sendall(b"250 OK queued\r\n")
                if fail == "quit":
                    # A reset: the client's next write fails.
                    conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\x01\x00\x00\x00\x00\x00\x00\x00")
                    conn.close()
                    break
            elif verb == b"QUIT":
                conn.sendall(b"221 Bye\r\n")
                break
            else:
                conn.sendall(b"502 5.5.2 Not implemented\r\n")
        try:
            if conn is not None:
                conn.close()
        except OSError:
            pass


def pop(args):
    port, log, fail = int(args[0]), args[1], args[2]
    server = listen(port)
    print("ready", flush=True)
    while True:
        conn, _ = server.accept()
        buffer = [b""]
        if fail == "greeting":
            conn.sendall(b"-ERR not now\r\n")
            conn.close()
            continue
        conn.sendall(b"+OK POP3 ready\r\n")
        while True:
            line = read_line(conn, buffer)
            if line is None:
                break
            with open(log, "ab") as f:
                f.write(line + b"\n")
            verb = line.split(b" ")[0].upper()
            if verb == b"USER":
                conn.sendall(b"-ERR no such user\r\n" if fail == "user" else b"+OK\r\n")
            elif verb == b"PASS":
                conn.sendall(b"-ERR wrong password\r\n" if fail == "pass" else b"+OK logged in\r\n")
            elif verb == b"QUIT":
                conn.sendall(b"+OK bye\r\n")
                break
            else:
                conn.sendall(b"-ERR unknown\r\n")
        conn.close()


def blackhole(args):
    keep = []
    for port in args:
        server = listen(int(port), 0)
        keep.append(server)
        # Fill the accept queue; later connection attempts are dropped unanswered.
        for _ in range(2):
            c = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
            c.setblocking(False)
            try:
                c.connect(("127.0.0.1", int(port)))
            except BlockingIOError:
                pass
            keep.append(c)
    print("ready", flush=True)
    threading.Event().wait()


def parse(args):
    path, outdir = args
    with open(path, "rb") as f:
        raw = f.read()
    message = email.message_from_bytes(raw, policy=email.policy.compat32)
    result = {"headers": {k: str(v) for k, v in message.items()},
              "multipart": message.is_multipart(), "defects": [str(d) for d in message.defects],
              "parts": []}
    parts = message.get_payload() if message.is_multipart() else [message]
    for n, part in enumerate(parts):
        payload = part.get_payload(decode=True)
        entry = {"type": part.get_content_type(), "filename": part.get_param("name"),
                 "encoding": part.get("Content-Transfer-Encoding"),
                 "defects": [str(d) for d in part.defects]}
        out = os.path.join(outdir, "part%d" % n)
        with open(out, "wb") as f:
            f.write(payload or b"")
        entry["file"] = out
        result["parts"].append(entry)
    print(json.dumps(result))


def b64(args):
    result = {}
    for path in args:
        with open(path, "rb") as f:
            data = f.read()
        plain = base64.b64encode(data).decode()
        lines64 = "".join(plain[i:i + 64] + "\n" for i in range(0, len(plain), 64))
        lines72 = "\r\n".join(plain[i:i + 72] for i in range(0, len(plain), 72))
        if plain and len(plain) % 72 == 0:
            lines72 += "\r\n"
        result[os.path.basename(path)] = {"plain": plain, "lines64": lines64, "lines72": lines72}
    print(json.dumps(result))


if __name__ == "__main__":
    modes = {"smtp": smtp, "scripted": scripted, "pop": pop, "blackhole": blackhole,
             "parse": parse, "b64": b64}
    modes[sys.argv[1]](sys.argv[2:])

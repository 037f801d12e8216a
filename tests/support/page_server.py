#!/usr/bin/python3
"""A small product site on 127.0.0.1 for the about tab's tests.

Prints "port N" once it listens. Paths:
  /orvex/index.html  the product page, with a link to /orvex/elsewhere.html
  /orvex/elsewhere.html  where the link leads
  /etag              200 with ETag "abc-123"
  /missing           404 with ETag "gone-1"
  /silent/index.html accepts and never answers
"""
import http.server
import sys
import time

PAGE = b"""<!DOCTYPE html>
<html><head><meta charset="utf-8"><title>Orvex</title>
<style>
 body { margin: 0; font-family: sans-serif; background: #1f2a36; color: #e6e9ed; }
 header { padding: 48px 56px 24px; background: linear-gradient(#2f6fa8, #1f2a36); }
 h1 { font-size: 46px; margin: 0 0 8px; }
 p { font-size: 18px; margin: 0 56px 16px; color: #c9d4df; }
 a { color: #ffb45c; }
 .pill { display: inline-block; margin: 24px 56px; padding: 10px 22px; border-radius: 20px;
         background: #f08a24; color: #1b1f24; text-decoration: none; font-weight: bold; }
</style></head>
<body><header><h1>Orvex 0.1</h1><p>The product page, served by the tests from 127.0.0.1.</p></header>
<p>Ten tests in four groups keep an eye on memory, battery, drives and files.</p>
<a id="link" class="pill" href="/orvex/elsewhere.html">Read more about Orvex</a>
</body></html>
"""


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def answer(self, status, body=b"", headers=()):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        if self.path == "/orvex/index.html":
            self.answer(200, PAGE, [("Content-Type", "text/html; charset=utf-8")])
        elif self.path == "/orvex/elsewhere.html":
            self.answer(200, b"<html><body>elsewhere</body></html>", [("Content-Type", "text/html")])
        elif self.path == "/etag":
            self.answer(200, b"x", [("ETag", '"abc-123"')])
        elif self.path == "/missing":
            self.answer(404, b"no", [("ETag", '"gone-1"')])
        elif self.path.startswith("/silent/"):
            time.sleep(600)
        else:
            self.answer(404)


def main():
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    print(f"port {server.server_address[1]}", flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()

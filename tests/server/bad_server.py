#!/usr/bin/env python3
"""Servers that answer an inventory badly, on 127.0.0.1, for the client's tests.

Usage: bad_server.py [--tls CERT KEY] [--lifetime SECONDS]
Prints the port it listens on, then serves until stdin closes or the lifetime ends.
The request's path picks the answer:
  /garbage        bytes that are not HTTP
  /huge           1 GiB announced and streamed
  /huge-stream    1 GiB with no length, until the client hangs up
  /loop           a redirect to itself
  /refuse         HTTP 500
  /html           200 with a web page
  /slow           nothing for 30 s
  /silent         the connection closed without a word
  /ocs            a real OCS reply (zlib-compressed XML)
  /glpi           {"status": "ok"}
  /glpi-error     {"status": "error", "message": ...}
"""
import socket
import socketserver
import ssl
import sys
import threading
import time
import zlib

GIB = 1 << 30


class Handler(socketserver.BaseRequestHandler):
    def read_request(self):
        self.request.settimeout(10)
        data = b""
        while b"\r\n\r\n" not in data and len(data) < 65536:
            chunk = self.request.recv(4096)
            if not chunk:
                return None, 0
            data += chunk
        head, _, body = data.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        path = lines[0].split(" ")[1] if len(lines[0].split(" ")) > 1 else "/"
        length = 0
        for line in lines[1:]:
            name, _, value = line.partition(":")
            if name.strip().lower() == "content-length":
                length = min(int(value.strip() or 0), 16 << 20)
        while len(body) < length:
            chunk = self.request.recv(65536)
            if not chunk:
                break
            body += chunk
        return path, len(body)

    def send(self, status, ctype, body, extra=""):
        head = "HTTP/1.1 %s\r\nContent-Type: %s\r\nContent-Length: %d\r\n%sConnection: close\r\n\r\n" % (
            status, ctype, len(body), extra)
        self.request.sendall(head.encode() + body)

    def stream(self, announce):
        head = "HTTP/1.1 200 OK\r\nContent-Type: application/x-compress\r\n"
        head += ("Content-Length: %d\r\n" % GIB) if announce else ""
        self.request.sendall((head + "Connection: close\r\n\r\n").encode())
        block = b"\0" * 65536
        sent = 0
        deadline = time.monotonic() + 30
        while sent < GIB and time.monotonic() < deadline:
            self.request.sendall(block)
            sent += len(block)

    def handle(self):
        try:
            self.request.settimeout(10)
            tls = isinstance(self.request, ssl.SSLSocket)
            if not tls and self.request.recv(1, socket.MSG_PEEK) == b"\x16":
                # A TLS hello to a plain server: answered in HTTP, as web servers do.
                self.send("400 Bad Request", "text/plain", b"plain HTTP here")
                return
            path, _ = self.read_request()
            if path is None:
                return
            mode = path.split("?")[0].rstrip("/").rsplit("/", 1)[-1]
            if mode == "garbage":
                self.request.sendall(b"\x00\xffNOT HTTP AT ALL\r\n" * 64)
            elif mode in ("huge", "huge-stream"):
                self.stream(mode == "huge")
            elif mode == "loop":
                self.send("302 Found", "text/plain", b"", "Location: %s\r\n" % path)
            elif mode == "refuse":
                self.send("500 Internal Server Error", "text/plain", b"oops")
            elif mode == "html":
                self.send("200 OK", "text/html", b"<html><body>It works!</body></html>")
            elif mode == "slow":
                time.sleep(30)
            elif mode == "silent":
                pass
            elif mode == "ocs":
                reply = b"<?xml version='1.0' encoding='UTF-8'?><REPLY><RESPONSE>NO_ACCOUNT_UPDATE</RESPONSE></REPLY>"
                self.send("200 OK", "application/x-compress", zlib.compress(reply))
            elif mode == "glpi":
                self.send("200 OK", "application/json", b'{"status":"ok","expiration":24}')
            elif mode == "glpi-error":
                self.send("400 Bad Request", "application/json",
                          b'{"status":"error","message":"JSON does not validate"}')
            else:
                self.send("404 Not Found", "text/plain", b"no such mode")
        except (OSError, ssl.SSLError):
            pass


class Server(socketserver.ThreadingTCPServer):
    daemon_threads = True
    allow_reuse_address = True


def main():
    args = sys.argv[1:]
    tls = None
    lifetime = 120.0
    while args:
        if args[0] == "--tls":
            tls = (args[1], args[2])
            args = args[3:]
        elif args[0] == "--lifetime":
            lifetime = float(args[1])
            args = args[2:]
        else:
            sys.exit("usage: bad_server.py [--tls CERT KEY] [--lifetime SECONDS]")
    server = Server(("127.0.0.1", 0), Handler)
    if tls:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(tls[0], tls[1])
        server.socket = context.wrap_socket(server.socket, server_side=True)
    print(server.server_address[1], flush=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    # Ends with its caller (stdin closed) or after its lifetime, whichever is first.
    done = threading.Event()
    threading.Thread(target=lambda: (sys.stdin.read(), done.set()), daemon=True).start()
    done.wait(lifetime)
    server.shutdown()


if __name__ == "__main__":
    main()

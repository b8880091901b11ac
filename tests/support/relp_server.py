#!/usr/bin/env python3
# A RELP server on the loopback, connection after connection. It prints its port, and appends to a file, with
# a zero byte behind it, every message that it acknowledged, with "-" before those that it refused.
#
# STEP: what happens in the first connection, or in each; otherwise the server does what it should.
#   open, next   takes the first frame and agrees; reads a frame
#   take         acknowledges the frame that was read
#   reverse N    reads N frames, and acknowledges them from the last one on
#   answer TEXT  answers the frame
#   send BYTES   sends that
#   read, serve  reads on until the client is gone; goes on as it should
import argparse
import socket
import ssl
import subprocess
from contextlib import suppress


class Session:
    def __init__(self, connection):
        self.connection, self.stream, self.frame = connection, connection.makefile("rb"), None

    def next(self, _=""):
        head = b""
        while head.count(b" ") < 3 and not head.endswith(b"\n"):
            byte = self.stream.read(1)
            if not byte:
                raise EOFError
            head += byte
        number, command, size = head.split()
        data = self.stream.read(int(size) + 1) if head.endswith(b" ") else b"\n"
        if not data.endswith(b"\n"):
            raise EOFError
        self.frame = number, command, data[:-1]

    def send(self, text):
        self.connection.sendall(text.encode())

    def answer(self, text):
        self.send(f"{self.frame[0].decode()} rsp {len(text)} {text}\n")

    def open(self, _=""):
        self.next()
        assert self.frame[:2] == (b"1", b"open")
        self.answer("200 OK\nrelp_version=0\ncommands=syslog")

    def take(self, _=""):
        refused = self.frame[2].decode() == arguments.refuse
        with open(arguments.seen, "ab") as seen:
            seen.write((b"-" if refused else b"") + self.frame[2] + b"\0")
        self.answer("500 not this one" if refused else "200 OK")

    def reverse(self, count):
        frames = [self.next() or self.frame for _ in range(int(count))]
        for self.frame in reversed(frames):
            self.take()

    def read(self, _=""):
        while True:
            self.next()

    def serve(self, _=""):
        self.next()
        while self.frame[1] == b"syslog":
            self.take()
            self.next()
        self.send(f"{self.frame[0].decode()} rsp 0\n")


parser = argparse.ArgumentParser()
parser.add_argument("--each", action="store_true")
parser.add_argument("--refuse", help="a message that is refused, each time")
parser.add_argument("--name", help="with TLS, and a certificate made out to that")
parser.add_argument("--demand", action="store_true", help="of clients the server's own certificate")
parser.add_argument("seen", help="also the beginning of the names of key and certificate")
parser.add_argument("steps", nargs="*")
arguments = parser.parse_args()
if arguments.name:
    key, certificate = arguments.seen + "key.pem", arguments.seen + "cert.pem"
    kind = "IP" if arguments.name[0].isdigit() else "DNS"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
                    "/CN=" + arguments.name, "-addext", f"subjectAltName={kind}:{arguments.name}", "-keyout", key,
                    "-out", certificate], check=True, stderr=subprocess.DEVNULL)
    tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    tls.load_cert_chain(certificate, key)
    tls.load_verify_locations(certificate)
    tls.verify_mode = ssl.CERT_REQUIRED if arguments.demand else ssl.CERT_NONE
listener = socket.create_server(("127.0.0.1", 0))
print(listener.getsockname()[1], flush=True)
steps = arguments.steps
while True:
    connection, _ = listener.accept()
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    with suppress(EOFError, OSError):
        if arguments.name:
            connection = tls.wrap_socket(connection, server_side=True)
        session = Session(connection)
        for step in steps or ["open", "serve"]:
            verb, _, text = step.partition(" ")
            getattr(session, verb)(text)
    steps = arguments.steps if arguments.each else []
    # What the client still sent is read: else the kernel would throw away what it was sent.
    with suppress(OSError):
        connection.shutdown(socket.SHUT_WR)
        while connection.recv(4096):
            pass
    connection.close()

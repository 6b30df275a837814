"""Requests that no tool of net-snmp sends, and 1,000 of them in a second."""

import itertools
import os
import socket
import subprocess
import sys

from harness.tools import CommandFailed

GET, GET_NEXT = 0xA0, 0xA1


def encode(tag, *parts):
    """A value in BER (X.690, 8.1)."""
    body = b"".join(parts)
    size = bytes([len(body)]) if len(body) < 128 else b"\x82" + len(body).to_bytes(2, "big")
    return bytes([tag]) + size + body


def encode_oid(text):
    arcs = []
    for arc in text.split(".")[2:]:
        groups = [int(arc) >> shift & 127 for shift in (28, 21, 14, 7, 0) if int(arc) >> shift or shift == 0]
        arcs += [group | 128 for group in groups[:-1]] + groups[-1:]
    return encode(6, b"\x2b", bytes(arcs))


def request(kind, oids, community="public"):
    """A message of SNMPv2c."""
    binds = encode(0x30, *(encode(0x30, encode_oid(oid), encode(5)) for oid in oids))
    return encode(0x30, encode(2, b"\1"), encode(4, community.encode()),
                  encode(kind, encode(2, b"\7"), encode(2, b"\0"), encode(2, b"\0"), binds))


def broken_request(size):
    """A message of SNMPv3 that takes answers of that many bytes. Below 484 it is dropped (RFC 3412, 6)."""
    header = encode(0x30, encode(2, b"\1"), encode(2, bytes([size])), encode(4, b"\4"), encode(2, b"\3"))
    return encode(0x30, encode(2, b"\3"), header, encode(4), encode(0x30))


def flood(namespace, requests, unanswered=(), port=1161):
    """Sends each request when the one before has been answered; raises CommandFailed when one is not. One of
    `unanswered` goes before each, until there are no more."""
    lines = [" ".join(one.hex() for one in pair if one) for pair in itertools.zip_longest(unanswered, requests)]
    command = namespace.wrap([sys.executable, "-B", "-m", __name__, str(port)])
    done = subprocess.run(command, input="\n".join(lines), capture_output=True, text=True, timeout=60, check=False,
                          cwd=os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    if done.returncode != 0:
        raise CommandFailed(done.stderr)


def main():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as agent:
        agent.connect(("127.0.0.1", int(sys.argv[1])))
        agent.settimeout(10)
        for line in sys.stdin:
            for datagram in line.split():
                agent.send(bytes.fromhex(datagram))
            agent.recv(65535)


if __name__ == "__main__":
    main()

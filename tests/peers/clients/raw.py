"""What only a bare socket can send: pipelined requests, single bytes, half a request."""
import json
import os
import socket
import time
import urllib.parse

from report import equal, finish, report

ADDRESS = urllib.parse.urlsplit(os.environ["HOST_HTTP"]).netloc


def post(body, more=""):
    return (f"POST /rpc HTTP/1.1\r\nHost: {ADDRESS}\r\nContent-Type: application/json\r\n{more}"
            f"Content-Length: {len(body)}\r\n\r\n{body}").encode()


def call(method, params, id):
    return json.dumps({"jsonrpc": "2.0", "method": method, "params": params, "id": id})


def connect():
    host, port = ADDRESS.rsplit(":", 1)
    made = socket.create_connection((host, int(port)), timeout=20)
    made.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return made


def read_answer(stream):
    """(status, body); of an answer that tells its length."""
    status = int(stream.readline().split()[1])
    length = 0
    while True:
        line = stream.readline().strip().lower()
        if not line:
            return status, stream.read(length).decode()
        if line.startswith(b"content-length:"):
            length = int(line.split(b":")[1])


def pipelined():
    """Answers come in the order of the requests, however long each takes."""
    with connect() as peer:
        requests = [post(call("sleep", {"ms": 300}, 0)), post(call("sum", [1], 1)),
                    post('{"jsonrpc":"2.0","method":"news"}'), post("{"),
                    f"GET /none HTTP/1.1\r\nHost: {ADDRESS}\r\n\r\n".encode()]
        requests += [post(call("sum", [n], n)) for n in range(2, 200)]
        peer.sendall(b"".join(requests))
        stream = peer.makefile("rb")
        answers = [read_answer(stream) for _ in requests]
    equal([status for status, _ in answers], [200, 200, 200, 400, 404] + [200] * 198)
    equal(answers[2][1], "")
    ids = [json.loads(body)["id"] for status, body in answers if status == 200 and body]
    equal(ids, list(range(0, 200)))


def empty_line():
    """Some clients put a line end behind a body: RFC 9112 section 2.2 wants it to be passed over."""
    with connect() as peer:
        stream = peer.makefile("rb")
        for n in range(3):
            peer.sendall(post(call("sum", [n], n)) + b"\r\n")
            equal(read_answer(stream)[0], 200, f"request {n}")


def single_bytes():
    with connect() as peer:
        stream = peer.makefile("rb")
        for body, result in ((call("sum", [1, 2], 1), 3), (call("echo", ["\u00e9"], 2), ["\u00e9"])):
            for byte in post(body):
                peer.send(bytes([byte]))
            status, answer = read_answer(stream)
            equal((status, json.loads(answer)["result"]), (200, result))


def half_closed():
    """Who has said all still gets the answer."""
    with connect() as peer:
        peer.sendall(post(call("sleep", {"ms": 200}, 1)))
        peer.shutdown(socket.SHUT_WR)
        stream = peer.makefile("rb")
        equal(read_answer(stream)[0], 200)
        equal(stream.read(), b"")


def unfinished():
    """A request that stops in the middle is answered 408 after a while, a quiet connection is not."""
    with connect() as quiet, connect() as peer:
        peer.sendall(post(call("sum", [1], 1))[:-5])
        begin = time.monotonic()
        stream = peer.makefile("rb")
        equal(read_answer(stream)[0], 408)
        equal(stream.read(), b"")
        equal(time.monotonic() - begin < 10, True, "the stall time")
        quiet.sendall(post(call("sum", [1], 1)))
        equal(read_answer(quiet.makefile("rb"))[0], 200)


def two_lengths():
    """What a proxy in front may understand otherwise is refused, and nothing behind it is served."""
    smuggled = post(call("sum", [1], 1))
    for more in ("Content-Length: 3\r\n", "Transfer-Encoding: chunked\r\n", "Transfer-Encoding : chunked\r\n",
                 "Transfer-Encoding:\r\n chunked\r\n", "Content-Length: +3\r\n"):
        with connect() as peer:
            peer.sendall(post("{}", more) + smuggled)
            stream = peer.makefile("rb")
            equal(read_answer(stream)[0], 400, more)
            equal(stream.read(), b"", more)


for test in (pipelined, empty_line, single_bytes, half_closed, unfinished, two_lengths):
    report("socket: " + test.__name__, test)
finish()

"""nginx and haproxy in front of the host use few connections to it for many requests.
Environment: HOST_HTTP, HOST_ADMIN, FRONTS."""
import http.client
import json
import os
import re
import urllib.parse
import urllib.request

from report import equal, finish, report


def opened():
    """Connections that the host has accepted on its HTTP listener."""
    text = urllib.request.urlopen(os.environ["HOST_ADMIN"] + "/metrics").read().decode()
    pattern = r'json_rpc_connections_opened_total{listener="%s"} (\d+)' % re.escape(os.environ["HOST_HTTP"])
    return int(re.search(pattern, text).group(1))


def kept(front):
    before = opened()
    for client in range(20):  # each has a connection of its own to the front
        peer = http.client.HTTPConnection(urllib.parse.urlsplit(front).netloc, timeout=20)
        for n in range(10):
            body = json.dumps({"jsonrpc": "2.0", "method": "sum", "params": [n, client], "id": n})
            peer.request("POST", "/rpc", body, {"Content-Type": "application/json"})
            answer = peer.getresponse()
            equal(json.loads(answer.read())["result"], n + client)
        peer.close()
    made = opened() - before
    assert made <= 5, f"{made} connections for 200 requests, health checks among them"


def large(front):
    """Bodies that a front hands over in pieces, or after it has collected them."""
    peer = http.client.HTTPConnection(urllib.parse.urlsplit(front).netloc, timeout=20)
    head = {"Content-Type": "application/json"}
    body = json.dumps({"jsonrpc": "2.0", "method": "count", "params": [1] * 1000000, "id": 1}).encode()
    pieces = (body[at:at + 100000] for at in range(0, len(body), 100000))
    peer.request("POST", "/rpc", pieces, {**head, "Transfer-Encoding": "chunked"}, encode_chunked=True)
    equal(json.loads(peer.getresponse().read())["result"], 1000000)
    peer.request("POST", "/rpc", '{"jsonrpc":"2.0","method":"blob","params":{"bytes":3000000},"id":1}', head)
    equal(sum(map(len, json.loads(peer.getresponse().read())["result"])) > 2900000, True)
    peer.request("POST", "/rpc", b"[" * 5000000, head)  # more than the host takes
    answer = peer.getresponse()
    equal((answer.status, json.loads(answer.read())["error"]["code"]), (413, 413))
    peer.close()


for address in os.environ["FRONTS"].split():
    for test in (kept, large):
        report(f"proxy: {test.__name__}, {address}", test, address)
finish()

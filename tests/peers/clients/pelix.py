"""Python's jsonrpclib-pelix. Environment: HOST_HTTP, HOST_HTTPS, PEER_CA; FRONTS are further HTTP addresses."""
import os
import ssl

import jsonrpclib
from jsonrpclib.config import Config

from report import equal, finish, report


def calls(url, **options):
    server = jsonrpclib.ServerProxy(url + "/rpc", config=Config(content_type="application/json"), **options)
    equal(server.sum(1, 2, 3), 6, "sum")
    equal(server.echo(text="\u00e9\U0001f600"), {"text": "\u00e9\U0001f600"}, "by name")
    equal(server._notify.none(1), None, "a notification")
    for n in range(50):
        equal(server.sum(n, 1), n + 1)
    try:
        server.none()
        raise AssertionError("an error is expected")
    except jsonrpclib.ProtocolError as error:
        equal(error.args[0][0], -32601, "none")
    server("close")()


report("jsonrpclib: HTTP", calls, os.environ["HOST_HTTP"])
for front in os.environ["FRONTS"].split():
    report("jsonrpclib: HTTP through " + front, calls, front)
trust = ssl.create_default_context(cafile=os.environ["PEER_CA"])
report("jsonrpclib: HTTPS", lambda: calls(os.environ["HOST_HTTPS"], context=trust))
finish()

"""Events between two processes: both, and the bus, on one processor."""

import subprocess

from desk import parsed, samples
from table import LeftOut, Samples, row


def requests(desk, *arguments, agents=("EchoAgent",), direct=True):
    with desk.bus(agents, pinned=True) as environment:
        environment = environment | {"QBDKR_DIRECT": "1" if direct else "0"}
        return samples(desk.run("RequestBench", *arguments, environment=environment, pinned=True))


def needs_glib(desk):
    if "libgio" not in subprocess.run(["ldd", desk.path("RequestBench")], capture_output=True, text=True).stdout:
        raise LeftOut("built without GLib's headers")


@row("waiting request", "sd_bus_call", at_most=0.45)
def beside_sd_bus(desk):
    return requests(desk, "ask", "sd-bus")


@row("the same, on the bus alone", "sd_bus_call", at_most=1.05)
def on_the_bus(desk):
    return requests(desk, "ask", "sd-bus", direct=False)


@row("waiting request", "GDBus call", at_most=0.38)
def beside_gdbus(desk):
    needs_glib(desk)
    return requests(desk, "ask", "gdbus")


@row("waiting request", "SEQPACKET exchange of as many bytes")
def beside_packets(desk):
    needs_glib(desk)
    return requests(desk, "ask", "seqpacket")


@row("request without reply", "sd_bus_send", at_most=0.5)
def post(desk):
    return requests(desk, "post")


@row("the same, on the bus alone", "sd_bus_send", at_most=1.12)
def post_on_the_bus(desk):
    return requests(desk, "post", direct=False)


@row("its distance from −600, peer gone", unit="", figure="alone", at_most=0)
def gone(desk):
    with desk.bus(()) as environment:
        status = parsed(desk.run("RequestBench", "gone", environment=environment))["ours"]
    return Samples([abs(one + 600) for one in status])


@row("inbound event, from sender to method entry", "sd-bus vtable method", at_most=1.10)
def entry(desk):
    return requests(desk, "entry", agents=("EchoAgent", "BareAgent"))

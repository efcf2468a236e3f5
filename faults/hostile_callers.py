#!/usr/bin/env python3
"""Callers who send what nobody should: noise, torn and oversized frames, half-closed and silent
connections, more answers than a memory holds, more connections than there are descriptors, and names
with control characters. Others are served throughout."""
import json, random, subprocess, time
from service import CTL, ENVIRONMENT, Gone, Refused, Service, Report, grid, options, with_paths

given = options(__doc__, frames=300)
report, rng = Report(), random.Random(given.seed)
service = Service(with_paths(grid(8, 8), 300, 5), prefix=("prlimit", "--nofile=128:128"))
service.settle()
good = service.caller()
before = good.call("get", path="te/config")

for number in range(given.frames):
    caller = service.caller()
    kind = number % 5
    if kind == 0:
        caller.send(rng.randbytes(rng.randint(1, 5000)) + b"\n")
    elif kind == 1:
        caller.send(b'{"jsonrpc": "2.0", "id": 1, "method": "get", "params": {"path"')
    elif kind == 2:
        caller.send(b"[" * rng.randint(1, 100000) + b"\n")
    elif kind == 3:
        caller.request("watch", paths=["te/cspf/status/vrf"])
    else:
        caller.request("get", path="")
    if rng.randint(0, 1):
        caller.close()
    good.call("status")
report.holds("served_beside_noise", good.call("get", path="te/config") == before)

# One frame that asks for more than memory holds; nobody reads for a while.
greedy = service.caller()
one = json.dumps({"jsonrpc": "2.0", "id": 1, "method": "get", "params": {"path": ""}}).encode()
greedy.send(b"[" + b",".join([one] * 20000) + b"]\n")
memory = service.rss_mib()
for _ in range(100):
    good.call("status")
    time.sleep(0.01)
report.limit("memory_for_unread_answers_mib", service.rss_mib() - memory, most=100)
greedy.close()

# More connections than descriptors: turned away, and the loop rests.
held = []
for _ in range(200):
    try:
        held.append(service.caller(1))
    except OSError:
        break
begin = service.cpu_seconds(), time.monotonic()
time.sleep(2)
report.limit("cpu_share_when_full", round((service.cpu_seconds() - begin[0]) / (time.monotonic() - begin[1]), 3), most=0.05)
report.holds("served_when_full", good.call("status")["pid"] == service.process.pid)
for caller in held:
    caller.close()
good.call("status")

def client(name):
    return {"entity": {name: {"type": "Cspf::Client", "value": {"vrf": {"default": True}, "addressFamily": {"ipv4": True}}}}}


try:
    good.call("patch", path="te/cspf/client", patch=client("evil\x1b[31mred"))
    report.holds("refuses_a_name_with_escapes", False)
except Refused as refused:
    report.holds("refuses_a_name_with_escapes", "control characters" in str(refused))
# Interfaces are called whatever they are called; a name of bytes beyond ASCII may hold C1.
good.call("patch", path="te/config", patch={"intfSrlg": {"evil\x1b[31mred": [7]}})
name = "evil\u009b31m"
good.call("patch", path="te/cspf/client", patch=client(name))
good.call("patch", path=f"te/cspf/config/vrf/default/ipv4/{name}", patch={"pathConfig": {"10.1.0.4#1": {}}})
service.settle()
raw = 0
for command in (["status"], ["dump"], ["get"], ["get", "te/config"], ["paths"], ["metrics"], ["get", name], ["trace", service.path("CspfAgent.qt")]):
    done = subprocess.run([CTL, *command], capture_output=True, env={**ENVIRONMENT, "CSPF_SOCKET": service.socket})
    raw += sum((done.stdout + done.stderr).count(sequence) for sequence in (b"\x1b", b"\xc2\x9b"))
report.limit("raw_control_characters", raw, most=0)
service.stop()
report.limit("exit_status", service.process.returncode, least=0, most=0)
report.finish()

#!/usr/bin/env python3
"""A machine that runs out of things: a disk that is full, a ring file that is cut, a log that nobody
reads, and memory that ends, first in a long answer, then in the service itself."""
import os, subprocess, time
from service import AGENTRUNNER, ENVIRONMENT, Caller, Gone, Refused, Report, Service, grid, options, with_paths

given = options(__doc__, paths=3000)
report = Report()

# The text trace goes on after the disk had room again, and says how much is missing.
service = Service(grid(2, 2), arguments=("--trace", "trace"), prefix=("prlimit", "--fsize=8388608"))
service.settle()
with open(service.path("trace"), "ab") as trace:
    trace.truncate(8 << 20)
patch = {"entity": {"late": {"type": "Cspf::Client", "value": {"vrf": {"default": True}, "addressFamily": {"ipv4": True}}}}}
caller = service.caller()
caller.call("patch", path="te/cspf/client", patch=patch)
os.truncate(service.path("trace"), 0)
caller.call("patch", path="te/cspf/client", patch={"entity": {"late": None}})
service.settle()
report.holds("text_trace_goes_on", "lines could not be written" in open(service.path("trace"), errors="replace").read())

# A ring file that is cut begins anew.
os.truncate(service.path("CspfAgent.qt"), 0)
caller.call("patch", path="te/cspf/client", patch=patch)
service.settle()
report.holds("stands_a_cut_ring", service.alive())
report.limit("ring_bytes_after_cut", os.path.getsize(service.path("CspfAgent.qt")), least=4096)
service.stop()

# Two routers with one TE router id are told to a log that nobody reads any more.
service = Service(grid(2, 2))
service.stop()
reader, writer = os.pipe()
process = subprocess.Popen([AGENTRUNNER, "--socket", service.socket, "--lab", service.path("lab.json")],
                           stderr=writer, env={**ENVIRONMENT, "VELOTRACEDIR": service.folder})
os.close(writer)
os.read(reader, 1000)
os.close(reader)
caller = Caller(service.socket)
table = "routing/isis/topodb/ip/2/default"
first, second = sorted(caller.call("get", path=table)["value"]["router"].items())[:2]
caller.call("patch", path=table, patch={"router": {second[0]: {"teRouterId": first[1]["teRouterId"]}}})
caller.call("status")
report.holds("stands_a_closed_log", process.poll() is None)
process.terminate()
process.wait()

# Want of memory ends the service at once, in words and with a status of its own.
service = Service(grid(8, 8), prefix=("prlimit", "--as=%d" % (96 << 20)), environment={"VELOTRACE_DISABLE": "1"})
try:
    caller = service.caller()
    for part in range(200):
        rows = {"10.1.0.%d#%d" % (2 + i % 60, part * given.paths + i): {"constraint": {"excludeAdminGroup": i}} for i in range(given.paths)}
        caller.call("patch", path="te/cspf/config/vrf/default/ipv4/planner", patch={"pathConfig": rows})
except (Gone, Refused, OSError):
    pass
service.process.wait(60)
report.limit("status_without_memory", service.process.returncode, least=3, most=3)
report.holds("says_out_of_memory", "out of memory" in service.said())
report.finish()

#!/usr/bin/env python3
"""A hundred thousand paths: another caller is answered while one reads everything, what is read is of
one instant although the state changes, nobody who does not read holds anybody up, and it ends soon."""
import json, threading, time
from service import Report, Service, grid, options, with_paths

given = options(__doc__, paths=100000, constraints=50, wait_ms=100)
report = Report()
service = Service(with_paths(grid(10, 10), given.paths, given.constraints), wait=600)
service.settle(600)
TABLE = "te/cspf/config/vrf/default/ipv4/rsvp"


def read(name, method, params, answers):
    caller = service.caller(600)
    caller.request(method, **params)
    while True:
        line = caller.line()
        if line.startswith(b'{"jsonrpc":"2.0","id":1,"result"'):
            answers[name] = line
            return


answers = {}
silent = service.caller()
silent.request("get", path="")  # and never reads
for name, method, params in (("get", "get", {"path": ""}), ("watch", "watch", {"paths": ["te/cspf/config/vrf"]}),
                             ("dump", "command", {"name": "CspfDump", "text": "DUMP_CSPF_STATE"})):
    thread = threading.Thread(target=read, args=(name, method, params, answers))
    thread.start()
    caller, worst, turn = service.caller(), 0.0, 0
    while thread.is_alive():
        begin = time.monotonic()
        caller.call("status")
        worst = max(worst, time.monotonic() - begin)
        # Two rows that always agree.
        turn += 1
        caller.call("patch", path=TABLE, patch={"pathConfig": {key: {"refreshReqSeq": turn} for key in ("10.1.0.2#1", "10.1.0.9#9")}})
        time.sleep(0.002)
    report.limit(name + "_others_wait_ms", round(worst * 1000), most=given.wait_ms)
rows = json.loads(answers["watch"])["result"].get(TABLE, {}).get("value", {}).get("pathConfig", {})
report.limit("different_moments_in_one_answer", len({row["refreshReqSeq"] for row in rows.values()}), most=1)
report.limit("rows_read", len(json.loads(answers["watch"])["result"][TABLE.replace("rsvp", "planner")]["value"]["pathConfig"]),
             least=given.paths, most=given.paths)
report.limit("memory_mib", service.rss_mib(), most=1024)
report.limit("cpu_seconds_to_end", round(service.stop(), 2), most=1)
report.limit("exit_status", service.process.returncode, least=0, most=0)
report.finish()

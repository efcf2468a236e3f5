#!/usr/bin/env python3
"""A hundred thousand paths: another caller is answered while one reads everything, what is read is of
one instant although the state changes, nobody who does not read holds anybody up, one frame of many rows
and a lab are written while others are answered, and it ends soon."""
import json, threading, time
from service import Report, Service, grid, options, with_paths

given = options(__doc__, paths=100000, constraints=50, wait_ms=100)
report = Report()
service = Service(with_paths(grid(10, 10), given.paths, given.constraints), wait=600)


def others_wait(name, calls):
    """While the calls are made, and until the agent rests, another caller is answered in time."""
    def make():
        writer = service.caller(600)
        for method, params in calls:
            writer.call(method, **params)

    thread = threading.Thread(target=make)
    thread.start()
    caller, worst, resting = service.caller(600), 0.0, 0
    while resting < 3:
        begin = time.monotonic()
        pending = caller.call("status")["pendingTasks"]
        worst = max(worst, time.monotonic() - begin)
        resting = 0 if thread.is_alive() or pending else resting + 1
        time.sleep(0.002)
    thread.join()
    caller.close()
    report.limit(name + "_others_wait_ms", round(worst * 1000), most=given.wait_ms)


def patch(path, **fields):
    return [("patch", {"path": path, "patch": fields})]


def planner(**fields):
    return patch("te/cspf/client", entity={"planner": {"type": "Cspf::Client", "value": fields}})


while "serving" not in service.said() and service.alive():  # the lab is read before
    time.sleep(0.01)
others_wait("start", [])
SERVED = {"vrf": {"default": True}, "addressFamily": {"ipv4": True}}
LINKS = service.caller(600).call("get", path="routing/isis/topodb/ip/2/default")["value"]["neighbor"]
for name, calls in (
        ("client_off", patch("te/cspf/client", entity={"planner": None})), ("client_on", planner(**SERVED)),
        ("client_off_and_on", patch("te/cspf/client", entity={"planner": None}) + planner(**SERVED)),
        ("vrf_off", planner(vrf={"default": False})), ("vrf_on", planner(vrf={"default": True})),
        ("family_off", planner(addressFamily={"ipv4": False})), ("family_on", planner(addressFamily={"ipv4": True})),
        ("te_off", patch("te/config", enabled=False)), ("te_on", patch("te/config", enabled=True)),
        ("router_id", patch("te/config", routerId="10.1.0.2")), ("router_id_back", patch("te/config", routerId="10.1.0.1")),
        ("links", patch("routing/isis/topodb/ip/2/default",
                        neighbor={key: {"metric": 101 + number} for number, key in enumerate(list(LINKS)[:40])}))):
    others_wait(name, calls)
report.limit("paths_served_again", len(service.caller(600).call(
    "get", path="te/cspf/status/vrf/default/ipv4/planner")["value"]["pathStatus"]), least=given.paths, most=given.paths)
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
# A frame of 7 MB and the whole lab again, without half of its paths.
keys = ["10.1.0.%d#%d" % (2 + number % 90, number) for number in range(min(given.paths, 80000))]
lab = with_paths(grid(10, 10), given.paths // 2, given.constraints)
text = json.dumps(lab)
parts = [text[at:at + (1 << 20)] for at in range(0, len(text), 1 << 20)]


def write(writer, frames):
    for frame in frames:
        writer.send(frame)
        writer.answer()


for name, calls in (("patch", [("patch", {"path": TABLE, "patch": {"pathConfig": {key: {"constraint": {"excludeAdminGroup": 1 + number % given.constraints}} for number, key in enumerate(keys)}}})]),
                    ("clear", [("patch", {"path": TABLE, "patch": {"pathConfig": None}})]),
                    ("load", [*(("load", {"part": part}) for part in parts), ("load", {})])):
    writer = service.caller(600)
    frames = [writer.frame(method, **params) for method, params in calls]  # it would hold up the measuring
    thread = threading.Thread(target=write, args=(writer, frames))
    thread.start()
    caller, worst = service.caller(), 0.0
    while thread.is_alive():
        begin = time.monotonic()
        caller.call("status")
        worst = max(worst, time.monotonic() - begin)
        time.sleep(0.002)
    report.limit(name + "_others_wait_ms", round(worst * 1000), most=given.wait_ms)
rows = service.caller().call("get", path=TABLE.replace("rsvp", "planner"))["value"]["pathConfig"]
report.limit("rows_after_the_lab", len(rows), least=given.paths // 2, most=given.paths // 2)
report.limit("memory_mib", service.rss_mib(), most=1024)
report.limit("cpu_seconds_to_end", round(service.stop(), 2), most=1)
report.limit("exit_status", service.process.returncode, least=0, most=0)
report.finish()

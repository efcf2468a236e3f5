#!/usr/bin/env python3
"""A hundred thousand paths: another caller is answered while one reads everything, what is read is of
one instant although the state changes, nobody who does not read holds anybody up, one frame of many rows
and a lab are written while others are answered, and it ends soon. With `--state 1` all of it stands in a database."""
import json
from service import Database, Report, Service, Surroundings, grid, options, with_paths

given = options(__doc__, paths=100000, constraints=50, wait_ms=100, state=0)
report = Report()
database = Database() if given.state else None
service = Service(with_paths(grid(10, 10), given.paths, given.constraints), wait=600,
                  arguments=("--state", "unix:" + database.socket) if database else ())
around = Surroundings(service, report, given.wait_ms)


def patch(path, **fields):
    return [("patch", {"path": path, "patch": fields})]


def planner(**fields):
    return patch("te/cspf/client", entity={"planner": {"type": "Cspf::Client", "value": fields}})


around.make("start", [])
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
    around.make(name, calls)
report.limit("paths_served_again", len(service.caller(600).call(
    "get", path="te/cspf/status/vrf/default/ipv4/planner")["value"]["pathStatus"]), least=given.paths, most=given.paths)
if database:
    rows = database.ask("HLEN", "t:te/cspf/status/vrf/default/ipv4/planner")  # with type and revision
    report.limit("fields_in_the_database", int(rows), least=given.paths + 2, most=given.paths + 2)
TABLE = "te/cspf/config/vrf/default/ipv4/rsvp"


def answer_to(method, **params):
    caller = service.caller(600)
    caller.request(method, **params)
    while True:
        line = caller.line()
        if line.startswith(b'{"jsonrpc":"2.0","id":1,"result"'):
            return line


def write_pair(caller, turn):
    """Two rows that always agree."""
    rows = {key: {"refreshReqSeq": turn} for key in ("10.1.0.2#1", "10.1.0.9#9")}
    caller.call("patch", path=TABLE, patch={"pathConfig": rows})


answers = {}
silent = service.caller()
silent.request("get", path="")  # and never reads
for name, method, params in (("get", "get", {"path": ""}), ("watch", "watch", {"paths": ["te/cspf/config/vrf"]}),
                             ("dump", "command", {"name": "CspfDump", "text": "DUMP_CSPF_STATE"})):
    with around.others_wait(name, write_pair):
        answers[name] = answer_to(method, **params)
rows = json.loads(answers["watch"])["result"].get(TABLE, {}).get("value", {}).get("pathConfig", {})
report.limit("different_moments_in_one_answer", len({row["refreshReqSeq"] for row in rows.values()}), most=1)
report.limit("rows_read", len(json.loads(answers["watch"])["result"][TABLE.replace("rsvp", "planner")]["value"]["pathConfig"]),
             least=given.paths, most=given.paths)
# A frame of 7 MB and the whole lab again, without half of its paths.
keys = ["10.1.0.%d#%d" % (2 + number % 90, number) for number in range(min(given.paths, 80000))]
lab = with_paths(grid(10, 10), given.paths // 2, given.constraints)
text = json.dumps(lab)
parts = [text[at:at + (1 << 20)] for at in range(0, len(text), 1 << 20)]

for name, calls in (
        ("patch", patch(TABLE, pathConfig={key: {"constraint": {"excludeAdminGroup": 1 + number % given.constraints}}
                                           for number, key in enumerate(keys)})),
        ("clear", patch(TABLE, pathConfig=None)),
        ("load", [*(("load", {"part": part}) for part in parts), ("load", {})])):
    around.make(name, calls)
rows = service.caller().call("get", path=TABLE.replace("rsvp", "planner"))["value"]["pathConfig"]
report.limit("rows_after_the_lab", len(rows), least=given.paths // 2, most=given.paths // 2)
report.limit("memory_mib", service.rss_mib(), most=1024)
report.limit("cpu_seconds_to_end", round(service.stop(), 2), most=1)
report.limit("exit_status", service.process.returncode, least=0, most=0)
report.finish()

#!/usr/bin/env python3
"""As many paths that carry traffic and reserve bandwidth, each with a constraint and a run of its own: while links
change, the source moves, the service and the whole topology go and come back, another caller is answered in time."""
from service import Report, Service, Surroundings, grid, options, with_paths

given = options(__doc__, paths=20000, wait_ms=100)
report = Report()
service = Service(with_paths(grid(10, 10), given.paths, 50, "rsvp", bandwidth=1), wait=600)
around = Surroundings(service, report, given.wait_ms)
TABLE = "routing/isis/topodb/ip/2/default"


def patch(path, **fields):
    return [("patch", {"path": path, "patch": fields})]


def metrics(keys, least):
    return patch(TABLE, neighbor={key: {"metric": least + number} for number, key in enumerate(keys)})


around.make("start", [])
table = service.caller(600).call("get", path=TABLE)["value"]
links = list(table["neighbor"])
for name, calls in (
        ("a_link", metrics(links[:1], 150)), ("many_links", metrics(links[::9], 101)),
        ("router_id", patch("te/config", routerId="10.1.0.2")), ("router_id_back", patch("te/config", routerId="10.1.0.1")),
        ("te_off", patch("te/config", enabled=False)), ("te_on", patch("te/config", enabled=True)),
        ("routers_off", patch(TABLE, router={key: None for key in table["router"]})),
        ("routers_on", patch(TABLE, router=table["router"]))):
    around.make(name, calls)
status = service.caller(600).call("get", path="te/cspf/status/vrf/default/ipv4/rsvp")["value"]["pathStatus"]
report.limit("paths_with_hops", sum(len(row["path"]) > 0 for row in status.values()), least=given.paths, most=given.paths)
report.limit("memory_mib", service.rss_mib(), most=100 + given.paths // 40)
report.limit("cpu_seconds_to_end", round(service.stop(), 2), most=1)
report.limit("exit_status", service.process.returncode, least=0, most=0)
report.finish()

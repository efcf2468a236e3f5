#!/usr/bin/env python3
"""Each allocation of a life, one after the other, fails: the service ends at once with "out of memory" and
its status, or with an error in words where a library of the system met it; it never crashes or hangs."""
import json, os, subprocess, tempfile
from service import AGENTRUNNER, BIN, ENVIRONMENT, Report, grid, options, with_paths

given = options(__doc__, first=1, count=2000, step=1)
report = Report()
folder = tempfile.TemporaryDirectory(prefix="faults")
lab = os.path.join(folder.name, "lab.json")
with open(lab, "w") as out:
    json.dump(with_paths(grid(2, 2), 4, 2), out)
outcomes, strange = {}, []
for number in range(given.first, given.first + given.count * given.step, given.step):
    # The failure stops the process; without one, a second of life is enough. It is the service's alone.
    failing = ["env", "FAILING_ALLOCATION=%d" % number, "LD_PRELOAD=" + os.path.join(BIN, "..", "lib", "libFailingAllocation.so")]
    done = subprocess.run(["timeout", "--preserve-status", "-s", "TERM", "1", *failing, AGENTRUNNER,
                           "--socket", os.path.join(folder.name, "s"), "--lab", lab],
                          capture_output=True, stdin=subprocess.DEVNULL, env={**ENVIRONMENT, "VELOTRACE_DISABLE": "1"})
    outcomes[done.returncode] = outcomes.get(done.returncode, 0) + 1
    words = done.stderr.strip()
    if not (done.returncode in (0, 1, 127) and (words or not done.returncode) or done.returncode == 3 and b"out of memory" in words):
        strange.append(number)
report.figures["by_exit_status"] = {str(status): count for status, count in sorted(outcomes.items())}
report.figures["strange_ends_after"] = strange[:20]
report.limit("strange_ends", len(strange), most=0)
report.finish()

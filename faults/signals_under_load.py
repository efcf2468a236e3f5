#!/usr/bin/env python3
"""Signals while paths come and go: stopped and continued, told to reopen its traces, killed and started
again on the socket that it left, several at once on that socket, and ended in order."""
import os, random, signal, socket, subprocess, threading, time
from service import AGENTRUNNER, ENVIRONMENT, Caller, Gone, Refused, Report, Service, grid, options, with_paths

given = options(__doc__, rounds=20)
report, rng = Report(), random.Random(given.seed)
lab = with_paths(grid(6, 6), 200, 10)
stopping = threading.Event()


def load(path):
    number = 0
    while not stopping.is_set():
        try:
            caller = Caller(path, 10)
            while not stopping.is_set():
                number += 1
                keys = {"10.1.0.%d#%d" % (2 + number % 30, number % 97): None if number % 3 else {}}
                caller.call("patch", path="te/cspf/config/vrf/default/ipv4/rsvp", patch={"pathConfig": keys})
        except (Gone, Refused, OSError):
            time.sleep(0.01)


service = Service(lab)
thread = threading.Thread(target=load, args=(service.socket,))
thread.start()
lost = 0
for turn in range(given.rounds):
    number = rng.choice((signal.SIGHUP, signal.SIGPIPE, signal.SIGSTOP))
    service.process.send_signal(number)
    service.process.send_signal(signal.SIGCONT)
    lost += not service.alive()
service.caller().call("status")
report.limit("ended_by_harmless_signals", lost, most=0)
service.process.kill()
service.process.wait()

several = unreachable = 0
for turn in range(given.rounds):
    runners = [subprocess.Popen([AGENTRUNNER, "--socket", service.socket], cwd=service.folder, stderr=subprocess.PIPE,
                                env={**ENVIRONMENT, "VELOTRACE_DISABLE": "1"}) for _ in range(4)]
    patience = time.monotonic() + 20
    while sum(r.poll() is None for r in runners) > 1 and time.monotonic() < patience:
        time.sleep(0.005)
    ended = [r for r in runners if r.poll() is not None]
    living = [r for r in runners if r.poll() is None]
    several += len(living) != 1 or any(b"another process serves" not in r.stderr.read() for r in ended)
    for runner in living:
        while True:
            try:
                unreachable += Caller(service.socket, 10).call("status")["pid"] != runner.pid
                break
            except OSError:
                time.sleep(0.005)
        runner.kill()
        runner.wait()
report.limit("rounds_without_exactly_one", several, most=0)
report.limit("rounds_with_a_stranger_at_the_socket", unreachable, most=0)

status = []
for turn in range(3):
    runner = subprocess.Popen([AGENTRUNNER, "--socket", service.socket, "--lab", service.path("lab.json")], stderr=subprocess.DEVNULL,
                              env={**ENVIRONMENT, "VELOTRACE_DISABLE": "1"})
    while True:
        try:
            Caller(service.socket, 10).call("status")
            break
        except OSError:
            time.sleep(0.005)
    runner.terminate()
    status.append(runner.wait(60))
stopping.set()
thread.join()
report.holds("ends_in_order", status == [0, 0, 0] and not os.path.exists(service.socket))
report.finish()

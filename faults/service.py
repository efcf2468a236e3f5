"""A live agentrunner with its socket, labs to load into it, and figures beside their limits.

Each script here does one kind of harm to the service from outside, and prints one JSON line: the
figures that it took, each beside its limit, and whether all held. CSPF_BIN names the folder with the
programs (a sanitizer build is as good as a release build).
"""
import argparse, atexit, contextlib, json, multiprocessing, os, random, signal, socket, subprocess, sys, tempfile, time

BIN = os.path.abspath(os.environ.get("CSPF_BIN", "build/release/bin"))
CTL, AGENTRUNNER = os.path.join(BIN, "cspfctl"), os.path.join(BIN, "agentrunner")
ENVIRONMENT = {"ASAN_OPTIONS": "detect_odr_violation=0", **os.environ}


def options(about, **more):
    """The command line: `--name value` for each of `more`, whose values are the defaults."""
    parser = argparse.ArgumentParser(description=about)
    for name, default in {"seed": 1, **more}.items():
        parser.add_argument("--" + name, type=type(default), default=default)
    return parser.parse_args()


class Report:
    """Figures beside their limits."""

    def __init__(self):
        self.figures, self.passed = {}, True

    def limit(self, name, figure, least=None, most=None):
        good = (least is None or figure >= least) and (most is None or figure <= most)
        self.figures[name] = {"figure": figure, **({} if least is None else {"least": least}),
                              **({} if most is None else {"most": most})}
        self.passed = self.passed and good

    def holds(self, name, truth):
        self.figures[name] = bool(truth)
        self.passed = self.passed and bool(truth)

    def finish(self):
        """Ends with 0 if all limits held, else 1."""
        test = os.path.splitext(os.path.basename(sys.argv[0]))[0]
        print(json.dumps({"test": test, **self.figures, "passed": self.passed}), flush=True)
        sys.exit(0 if self.passed else 1)


class Refused(Exception):
    """The service answered with an error."""


class Gone(Exception):
    """The connection is over."""


class Caller:
    """One connection to the control socket."""

    def __init__(self, path, timeout=120):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(timeout)
        self.socket.connect(path)
        self.buffer, self.number = bytearray(), 0

    def send(self, data):
        try:
            self.socket.sendall(data)
        except OSError as error:
            raise Gone(str(error))

    def frame(self, method, **params):
        self.number += 1
        body = {"jsonrpc": "2.0", "id": self.number, "method": method, "params": params}
        return json.dumps(body).encode() + b"\n"

    def request(self, method, **params):
        """Sends without waiting for the answer."""
        self.send(self.frame(method, **params))

    def line(self):
        searched = 0
        while (end := self.buffer.find(b"\n", searched)) < 0:
            searched = len(self.buffer)
            try:
                more = self.socket.recv(1 << 20)
            except TimeoutError:
                raise
            except OSError as error:
                raise Gone(str(error))
            if not more:
                raise Gone("end of the stream")
            self.buffer += more
        text = bytes(self.buffer[:end])
        del self.buffer[:end + 1]
        return text

    def call(self, method, **params):
        self.request(method, **params)
        return self.answer()

    def answer(self):
        while True:
            answer = json.loads(self.line())
            if "error" in answer:
                raise Refused(answer["error"]["message"])
            if "method" not in answer:
                return answer["result"]

    def close(self):
        self.socket.close()


class Database:
    """A redis-server of one's own, in a folder of its own."""

    def __init__(self):
        self.directory = tempfile.TemporaryDirectory(prefix="faults")
        self.socket = os.path.join(self.directory.name, "s")
        self.process = subprocess.Popen(["redis-server", "--port", "0", "--unixsocket", self.socket, "--save", ""],
                                        stdout=subprocess.DEVNULL, cwd=self.directory.name)
        atexit.register(self.process.kill)
        while self.process.poll() is None and not os.path.exists(self.socket):
            time.sleep(0.002)

    def ask(self, *words):
        return subprocess.run(["redis-cli", "-s", self.socket, *words], capture_output=True, text=True).stdout.strip()


class Service:
    """An agentrunner of one's own, in a folder of its own."""

    def __init__(self, lab=None, arguments=(), environment=None, wait=120, prefix=()):
        self.directory = tempfile.TemporaryDirectory(prefix="faults")
        self.folder = self.directory.name
        self.socket = self.path("s")
        self.log = open(self.path("log"), "ab+")
        command = [*prefix, AGENTRUNNER, "--socket", self.socket, *arguments]
        if lab is not None:
            with open(self.path("lab.json"), "w") as out:
                json.dump(lab, out)
            command += ["--lab", self.path("lab.json")]
        self.process = subprocess.Popen(
            command, stdout=self.log, stderr=self.log, cwd=self.folder,
            env={**ENVIRONMENT, "VELOTRACEDIR": self.folder, **(environment or {})})
        end = time.monotonic() + wait
        while self.alive() and time.monotonic() < end:
            try:
                self.caller().close()
                break
            except OSError:
                time.sleep(0.002)

    def path(self, name):
        return os.path.join(self.folder, name)

    def caller(self, timeout=120):
        return Caller(self.socket, timeout)

    def alive(self):
        return self.process.poll() is None

    def said(self):
        with open(self.path("log"), errors="replace") as text:
            return text.read()

    def cpu_seconds(self, with_children=False):
        fields = open(f"/proc/{self.process.pid}/stat").read().rsplit(")", 1)[1].split()
        return sum(map(int, fields[11:15 if with_children else 13])) / os.sysconf("SC_CLK_TCK")

    def rss_mib(self):
        for line in open(f"/proc/{self.process.pid}/status"):
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) >> 10
        return 0

    def settle(self, timeout=300):
        """Waits until there is an agent, no task is pending, and a database has all."""
        caller, end = self.caller(timeout), time.monotonic() + timeout
        while True:
            status = caller.call("status")
            if status["agent"] and not status["pendingTasks"] and status.get("state", {}).get("settled", True):
                break
            if time.monotonic() > end:
                raise TimeoutError("work pending after %s s" % timeout)
            time.sleep(0.005)
        caller.close()

    def stop(self, number=signal.SIGTERM, wait=120):
        """CPU seconds that it took to end, if it still lived."""
        before = self.cpu_seconds(True) if self.alive() else 0
        usage = os.times()
        if self.alive():
            self.process.send_signal(number)
        self.process.wait(wait)
        after = os.times()
        whole = after.children_user + after.children_system - usage.children_user - usage.children_system
        return max(0.0, whole - before)


def ask(path, test, also):
    """Waits for `status`, again and again, until the test says so; the longest wait, in seconds."""
    caller, worst, turn = Caller(path, 600), 0.0, 0
    test.send("asking")
    while not test.poll(0.002):
        begin = time.monotonic()
        caller.call("status")
        worst = max(worst, time.monotonic() - begin)
        turn += 1
        also(caller, turn)
    test.send(worst)


class Surroundings:
    """Another caller of a service, in a process that does nothing else, and how long it may wait."""

    def __init__(self, service, report, wait_ms):
        self.service, self.report, self.wait_ms = service, report, wait_ms

    @contextlib.contextmanager
    def others_wait(self, name, also=lambda caller, turn: None):
        """Meanwhile it is answered in time."""
        test, asking = multiprocessing.Pipe()
        other = multiprocessing.Process(target=ask, args=(self.service.socket, asking, also), daemon=True)
        other.start()
        asking.close()
        test.recv()
        yield
        test.send("enough")
        self.report.limit(name + "_others_wait_ms", round(test.recv() * 1000), most=self.wait_ms)
        other.join()

    def make(self, name, calls):
        """It is answered in time while the calls are made and until the agent rests."""
        with self.others_wait(name):
            writer = self.service.caller(600)
            for method, params in calls:
                writer.call(method, **params)
            self.service.settle()


def grid(rows, columns, seed=1):
    """A lab of rows x columns routers in a grid, TE router ids 10.1.x.y."""
    rng, routers, links, address = random.Random(seed), {}, {}, 0
    for number in range(rows * columns):
        routers[f"r{number}"] = {"id": "0000.%04x.%04x" % (number + 1 >> 16, number + 1 & 0xFFFF),
                                 "teRouterId": f"10.1.{number + 1 >> 8}.{number + 1 & 255}"}
        row, column = divmod(number, columns)
        for other in [number + 1] * (column + 1 < columns) + [number + columns] * (row + 1 < rows):
            ends = [f"10.{64 + (n >> 16)}.{n >> 8 & 255}.{n & 255}" for n in (address, address + 1)]
            links[f"{number}-{other}"] = {
                "a": f"r{number}", "b": f"r{other}", "aAddr": ends[0], "bAddr": ends[1],
                "metric": rng.randint(1, 100), "adminGroup": rng.getrandbits(8), "bandwidth": 1e9}
            address += 2
    clients = {name: {"vrf": {"default": True}, "addressFamily": {"ipv4": True}} for name in ("planner", "rsvp")}
    return {"router": "r0", "topologies": {"core": {"routers": routers, "links": links}},
            "clients": clients, "paths": {name: {} for name in clients}}


def with_paths(lab, count, constraints, client="planner", **asked):
    """Adds so many paths to the routers in turn, under so many constraints, which also ask for that."""
    ends = [r["teRouterId"] for name, r in lab["topologies"]["core"]["routers"].items() if name != lab["router"]]
    for i in range(count):
        lab["paths"][client][f"p{i}"] = {"dst": ends[i % len(ends)], "id": i,
                                         "constraint": {"excludeAdminGroup": (i % constraints) << 8, **asked}}
    return lab

"""A small fleet of real programs on one machine, for the story's test and the demo: three boxes in network namespaces of their own,
each with veth links, packets and a maintd; beside each an agent; a nats-server with TLS and keys; and a controller.

Is itself to run in a network namespace that is its own ("unshare --user --map-root-user --net"), and needs no other rights. The
sockets are files, so that only maintd and the traffic are inside the boxes' namespaces. Everything lies in one directory, and dies
with whoever made the stage.
"""
import ctypes
import json
import os
import signal
import socket
import subprocess
import sys
import time

TREE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.abspath(os.environ.get("RATEMON_BUILD", os.path.join(TREE, "build/release")))

BOXES = ("spine-1", "spine-2", "spine-3")
LINKS = ("up1", "up2")

# Quiet for two seconds is proof enough for a story; real profiles take their time.
MAINTD = """
profiles: { quick: { threshold: 100kbps, sample-interval: 1s, load-interval: 2s } }
default-profile: quick
groups: { uplinks: { interfaces: [up1, up2] } }
units: { fabric: { groups: [uplinks] } }
"""
INVENTORY = """
boxes:
  spine-1: { labels: { plane: a, site: fra }, units: [fabric] }
  spine-2: { labels: { plane: a, site: fra }, units: [fabric] }
  spine-3: { labels: { plane: a, site: fra }, units: [fabric] }
budgets:
  plane: { out: 1 }
heartbeat: 1s
"""
# Of three heartbeats, after which a box is silent, a box that comes back must not need all.
RECONNECT = "500ms"


def dies_with_us():
    """Of a child: even where this process is killed, nothing is left behind."""
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Box:
    """A network namespace with links, and a maintd in it."""

    def __init__(self, stage, name):
        self.stage, self.name = stage, name
        self.senders = {}
        os.mkdir(stage.path(name))
        self.holder = stage.spawn(f"{name}/namespace", "unshare", "--net", "sleep", "infinity")
        ours = os.readlink("/proc/self/ns/net")
        until(lambda: os.readlink(f"/proc/{self.holder.pid}/ns/net") != ours, 60, f"a namespace for {name}")
        # Otherwise the kernel's own packets would be among the octets.
        self.inside("sh", "-c", "echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6; ip link set lo up")
        for number, link in enumerate(LINKS, 1):
            far = f"02:00:00:00:0{number}:02"
            self.inside("ip", "link", "add", link, "type", "veth", "peer", "name", f"far{number}", "address", far)
            self.inside("ip", "link", "set", f"far{number}", "up")
            self.inside("ip", "link", "set", link, "up")
            self.inside("ip", "address", "add", f"10.9.{number}.1/24", "dev", link)
            # No host stands behind the far end: its hardware address is enough to send to.
            self.inside("ip", "neigh", "replace", f"10.9.{number}.2", "lladdr", far, "dev", link)
        self.maintd = stage.spawn(
            f"{name}/maintd", *self.enter(), stage.program("maintd"), "--foreground", "--config", stage.path("maintd.yaml"),
            "--state", self.path("state"), "--socket", self.path("control.sock"), "--read-socket", self.path("read.sock"))
        until(lambda: self.maintctl("units", fails=True) is not None, 60, f"maintd of {name}")
        self.start_agent()

    def path(self, name):
        return self.stage.path(f"{self.name}/{name}")

    def enter(self):
        return ("nsenter", f"--net=/proc/{self.holder.pid}/ns/net")

    def inside(self, *command):
        subprocess.run([*self.enter(), *command], check=True)

    def maintctl(self, *arguments, fails=False):
        """What it answers as JSON; none where it fails and may."""
        said = subprocess.run([self.stage.program("maintctl"), "--socket", self.path("control.sock"), *arguments, "--json"],
                              capture_output=True, text=True, check=not fails)
        return json.loads(said.stdout) if said.returncode == 0 else None

    def unit(self):
        return self.maintctl("status", "fabric")

    def start_agent(self):
        self.agent = self.stage.spawn(
            f"{self.name}/agent", self.stage.program("maintfleet"), "agent", "--box", self.name, "--state", self.path("agent"),
            "--control-socket", self.path("control.sock"), "--read-socket", self.path("read.sock"), "--heartbeat", "1s",
            *self.stage.broker_options(self.name))

    def kill_agent(self):
        self.agent.kill()
        self.agent.wait()

    def traffic(self, link, rate):
        """From now on, until it is told to stop."""
        number = LINKS.index(link) + 1
        self.senders[link] = self.stage.spawn(f"{self.name}/traffic-{link}", *self.enter(), os.path.join(TREE, "tools/send-udp"),
                                              "--device", link, "--to", f"10.9.{number}.2", "--rate", str(rate))

    def quieten(self, link):
        sender = self.senders.pop(link)
        sender.kill()
        sender.wait()


class Stage:
    """All of it. A context: what was started is gone at the end."""

    def __init__(self, directory):
        self.directory = directory
        self.children = []
        self.boxes = {}

    def __enter__(self):
        try:
            self.set_up()
        except BaseException as failure:
            self.__exit__(type(failure))
            raise
        return self

    def __exit__(self, failure, *_):
        if failure is not None:
            print(self.logs(), file=sys.stderr)
        for child in reversed(self.children):
            child.kill()
            child.wait()

    def set_up(self):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        self.write("maintd.yaml", MAINTD)
        self.write("inventory.yaml", INVENTORY)
        self.start_broker()
        self.boxes = {name: Box(self, name) for name in BOXES}
        self.start_controller()

    def path(self, name):
        return os.path.join(self.directory, name)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def program(self, name):
        return os.path.join(BUILD, name)

    def spawn(self, log, *command):
        """A child whose words go to a file of that name, after those of an earlier one."""
        with open(self.path(log) + ".log", "a", encoding="utf-8") as file:
            child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=file, stderr=file, preexec_fn=dies_with_us)
        self.children.append(child)
        return child

    def log(self, name):
        with open(self.path(name) + ".log", encoding="utf-8") as file:
            return file.read()

    def logs(self):
        """Of all programs, for whoever is to find out what went wrong."""
        names = ["broker", "controller"] + [f"{box}/{what}" for box in BOXES for what in ("maintd", "agent")]
        return "".join(f"--- {name}\n{self.log(name)}" for name in names if os.path.exists(self.path(name) + ".log"))

    # --- broker and controller

    def start_broker(self):
        self.port = free_port()
        keys = ("--dir", self.path("keys"))
        for command in (("keys", "init", *keys), ("keys", "add", *BOXES, *keys)):
            subprocess.run([self.program("maintfleet"), *command], check=True, capture_output=True)
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "1",
                        "-subj", "/CN=broker", "-addext", "subjectAltName=DNS:broker", "-keyout", self.path("broker.key"),
                        "-out", self.path("broker.pem")], check=True, capture_output=True)
        self.write("broker.conf", f"""
listen: "127.0.0.1:{self.port}"
jetstream {{ store_dir: "{self.path('jetstream')}" }}
tls {{ cert_file: "{self.path('broker.pem')}", key_file: "{self.path('broker.key')}" }}
include "./keys/authorization.conf"
""")
        self.broker = self.spawn("broker", "nats-server", "-c", self.path("broker.conf"))

    def broker_options(self, name):
        return ("--broker", f"tls://127.0.0.1:{self.port}", "--key", self.path(f"keys/{name}.nk"), "--ca", self.path("broker.pem"),
                "--broker-name", "broker", "--reconnect", RECONNECT)

    def start_controller(self):
        self.controller = self.spawn(
            "controller", self.program("maintfleet"), "controller", "--inventory", self.path("inventory.yaml"), "--state",
            self.path("owner"), "--socket", self.path("fleet.sock"), *self.broker_options("owner"))
        until(lambda: self.fleet() and self.fleet()["reachable"], 60, "the controller has the broker")

    def kill_controller(self):
        self.controller.kill()
        self.controller.wait()

    # --- what people ask

    def command(self, *arguments):
        return [self.program("maintfleet"), *arguments, "--socket", self.path("fleet.sock")]

    def ask(self, *arguments):
        """Exit status and answer of a verb, which is none where it failed."""
        said = subprocess.run(self.command(*arguments, "--json"), capture_output=True, text=True, check=False)
        return said.returncode, json.loads(said.stdout) if said.stdout else None, said.stderr

    def asked(self, *arguments):
        """The answer of a verb that must not fail."""
        status, answer, errors = self.ask(*arguments)
        if status != 0:
            raise AssertionError(f"maintfleet {' '.join(arguments)} ended with {status}: {errors}")
        return answer

    def fleet(self):
        """As the controller sees it; none where it does not answer."""
        return self.ask("status")[1]

    def in_service(self):
        """How many units are."""
        return self.asked("status")["counts"]["inService"]


def until(holds, seconds, what):
    """Waits for it, and fails when it does not come in time."""
    end = time.monotonic() + seconds
    while not holds():
        if time.monotonic() > end:
            raise AssertionError(f"this did not come true in {seconds} s: {what}")
        time.sleep(0.1)

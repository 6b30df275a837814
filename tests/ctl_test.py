"""quorinctl: what it shows is the kernel's state; what it says about a store or an agent that is missing or damaged."""

import contextlib
import ipaddress
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import threading
import time

from harness import SystemCase, eventually, main
from harness.kernel import TO_NOWHERE, best_routes, fib_tables, neighbours_of
from harness.programs import BIN_DIR
from harness.tables import BY_TYPE
from harness.tools import read_file

OK, WARNING, CRITICAL, UNKNOWN = range(4)
TYPES = {2: "connected", 3: "static", 14: "bgp", 201: "staticNonPersistent", 202: "staticNexthopGroup", 203: "attached"}


class FakeAgent:
    """Answers the control socket's requests as quorind does."""

    status = {"version": "9.9", "pid": 4711, "ready": True, "stale": False, "requests": 1234, "longestTurn": 0.0125}
    answers = {"turns": {"turns": [{"kind": "requests", "count": 5, "p99": 0.001, "longest": 0.002}]},
               "contexts": {"contexts": [{"context": "", "vrf": "default", "state": "ready"}]}}

    def __init__(self, path):
        self.levels = []
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                threading.Thread(target=self.serve, args=(self.listener.accept()[0],), daemon=True).start()

    def serve(self, client):
        with client, contextlib.suppress(OSError):
            for line in client.makefile():
                request = json.loads(line)
                lines = [self.answers.get(request["request"], self.status)]
                if request["request"] == "trace":
                    self.levels.append(request["levels"])
                    lines = ([{"error": "no facility, and what to do"}] if request["levels"] == "bad/x" else
                             [{"tracing": request["levels"]}, {"time": 1.5, "facility": "IpBase", "level": 2, "text": "a\x1bb"},
                              {"lost": 3}])
                client.sendall("".join(json.dumps(answer) + "\n" for answer in lines).encode())


class CtlTest(SystemCase):
    def setUp(self):
        super().setUp()
        self.socket = os.path.join(self.directory, "agent")
        self.command = self.namespace.wrap([os.path.join(BIN_DIR, "quorinctl")])
        self.environment = {**os.environ, "QUORIN_STORE": self.store, "QUORIN_AGENT_SOCKET": self.socket}

    def ctl(self, *arguments, status=OK):
        """Output and error output of a run that ends with this status."""
        done = subprocess.run([*self.command, *arguments], capture_output=True, text=True, env=self.environment, timeout=60)
        self.assertEqual(done.returncode, status, (arguments, done.stdout, done.stderr))
        return done.stdout, done.stderr

    def rows(self, *arguments, status=OK):
        return json.loads(self.ctl(*arguments, "--json", status=status)[0])

    def serve_two_vrfs(self):
        self.namespace.add_interface("a0", "10.0.0.1/24", "10.0.0.2/24", "2001:db8::1/64")
        self.namespace.ip("neigh add 10.0.0.9 lladdr 02:00:00:00:00:09 dev a0", "link add gone type veth peer name gone-p",
                          "neigh add 2001:db8::9 lladdr 02:00:00:00:00:0a dev a0", "addr add 10.3.0.1/24 dev gone",
                          "route add 10.8.0.0/16 proto bgp metric 20 nexthop via 10.0.0.9 nexthop via 10.0.0.8",
                          "route add 10.8.1.0/24 via 10.0.0.9 proto static", "route add blackhole 10.7.0.0/16",
                          "route add unreachable 10.7.1.0/24", "route add prohibit 2001:db8:2::/48",
                          "route add 2001:db8:1::/48 via 2001:db8::9")
        self.vrfs.add("red", "link add a0 type veth peer name b0", "link set b0 up", "link set a0 up",
                      "addr add 10.0.0.1/24 dev a0", "route add default via 10.0.0.254",
                      "neigh add 10.0.0.9 lladdr 02:00:00:00:00:0b dev a0")
        self.start_publisher("red")

    def start_publisher(self, vrf):
        """Returns once that VRF is in the store, and the store complete."""
        self.start_mirror()

        def is_complete():
            done = subprocess.run([*self.command, "vrfs"], capture_output=True, text=True, env=self.environment)
            return vrf in done.stdout and not done.stderr
        eventually(is_complete, f"no VRF {vrf}, or the store is not complete")

    def test_lists_equal_the_kernel(self):
        self.serve_two_vrfs()
        for vrf, namespace in (("default", self.namespace), ("red", self.vrfs.namespaces["red"])):
            links = namespace.ip_json("addr")
            offset = 0 if vrf == "default" else 1 << 20
            self.expect(lambda: [(row["ifIndex"], row["dev"], row["lladdr"]) for row in self.rows("interfaces", "-V", vrf)],
                        lambda: [(offset + link["ifindex"], link["ifname"],
                                  link["address"] if link["link_type"] != "loopback" else "") for link in links], "interfaces")
            self.expect(
                lambda: [(row["address"], row["prefixLength"], row["dev"], row["state"] == "preferred")
                         for row in self.rows("addresses", "-V", vrf)],
                lambda: sorted(((info["local"], info["prefixlen"], link["ifname"], not info.get("tentative") and "UP" in link["flags"])
                                for link in namespace.ip_json("addr") for info in link["addr_info"]),
                               key=lambda row: (":" in row[0], ipaddress.ip_address(row[0]))), "addresses")
            self.expect(lambda: sorted((row["address"], row["dev"], row["lladdr"]) for row in self.rows("neighbours", "-V", vrf)),
                        lambda: sorted((entry["dst"], entry["dev"], entry["lladdr"]) for entry in neighbours_of(namespace)),
                        "neighbours")
            self.expect(
                lambda: [(row["prefix"], row["proto"], row["metric"], row["action"],
                          sorted((hop.get("via"), hop.get("dev")) for hop in row["nexthops"]))
                         for row in self.rows("routes", "-V", vrf)],
                lambda: [(str(network), route.get("protocol", "boot"), route.get("metric", 0),
                          route.get("type", "forward").replace("unicast", "forward"),
                          sorted((hop.get("gateway"), None if route.get("type") in TO_NOWHERE else hop["dev"])
                                 for hop in route.get("nexthops", [route])))
                         for version in (4, 6) for network, route in sorted(best_routes(namespace, version).items())], "routes")
            self.expect(lambda: {((1 if row["family"] == "ipv4" else 2), row["type"]): row["routes"]
                                 for row in self.rows("fib", "-V", vrf) if row["type"] != "total"},
                        lambda: {(family, TYPES[kind]): int(row[2])
                                 for (family, kind), row in fib_tables(namespace)[BY_TYPE].items()}, "fib")
        self.assertEqual([(row["vrf"], row["id"], row["kind"], row["state"]) for row in self.rows("vrfs")],
                         [("default", 0, "default", "active"), ("red", 1, "namespace", "active")])
        counters = eventually(lambda: self.rows("counters", "-V", "red"), "no counters")
        self.assertEqual([row["dev"] for row in counters], [row["dev"] for row in self.rows("interfaces", "-V", "red")])
        with self.subTest("tables for people"):
            for command in ("vrfs", "interfaces", "addresses", "neighbours", "routes", "fib", "counters"):
                lines = self.ctl(command)[0].splitlines()
                wide = 1 + sum(max(1, len(row.get("nexthops", ()))) for row in self.rows(command))
                self.assertEqual(len(lines), wide, (command, lines))
                self.assertRegex(lines[0], "^VRF +[A-Z]")
                self.assertEqual(lines, [line.rstrip() for line in lines])
            header, *lines = self.ctl("routes", "default", "10.8.0.0/16")[0].splitlines()
            self.assertEqual(sorted(line[header.index("VIA"):].split() for line in lines), [["10.0.0.8", "a0"], ["10.0.0.9", "a0"]])
            for prefix, action in (("10.7.0.0/16", "blackhole"), ("10.7.1.0/24", "unreachable"), ("2001:db8:2::/48", "prohibit")):
                header, line = self.ctl("routes", "default", prefix)[0].splitlines()
                self.assertEqual(line[header.index("VIA"):].split(), [action, "-"])

    def test_one_route(self):
        self.serve_two_vrfs()
        for arguments, expected in (
                (("10.8.1.7",), [("default", "10.8.1.0/24"), ("red", "0.0.0.0/0")]), (("red", "10.0.0.7"), [("red", "10.0.0.0/24")]),
                (("10.8.0.0/16",), [("default", "10.8.0.0/16")]), (("10.8.1.0/25",), []), (("192.0.2.1", "-V", "default"), []),
                (("10.8.0.0/16", "--longer"), [("default", "10.8.0.0/16"), ("default", "10.8.1.0/24")]),
                (("2001:db8:1::5",), [("default", "2001:db8:1::/48")]), (("red", "::/0", "-l"), [("red", "fe80::/64")])):
            with self.subTest(arguments):
                rows = self.rows("routes", *arguments, status=OK if expected else WARNING)
                self.assertEqual([(row["vrf"], row["prefix"]) for row in rows], expected)

    def test_wrong_usage(self):
        self.serve_two_vrfs()
        for arguments, words in (
                (("routes", "blue"), "no VRF 'blue'.*default, red"), (("vrfs", "-V", "blue"), "no VRF 'blue'"), ((), "subcommand"),
                (("routes", "10.0.0.0/33"), "neither"), (("routes", "red", "10.0.0.1", "x"), "At Most 2"), (("fib", "--bogus"), "--bogus.*quorinctl fib --help"),
                (("cats", "red"), "no command or option 'cats'"), (("store", "cats"), "no command or option 'cats'; see quorinctl store"),
                (("routes", "--longer"), "prefix"), (("watch", "cats"), "cats"), (("store", "dump", "cats"), "cats"),
                (("--store", "", "vrfs"), "--store.*empty"), (("--agent", "", "turns"), "--agent.*empty"), (("trace", "cats"), "(?s)'cats'.*ipCidrRouteTable"),
                (("trace", "routes", "0"), "TIME"), (("trace", "routes", "1d"), "TIME")):
            with self.subTest(arguments):
                self.assertRegex(self.ctl(*arguments, status=UNKNOWN)[1], words)

    def test_many_routes_leave_the_store_alone(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.namespace.ip(*(f"route add 11.{i >> 8}.{i & 255}.0/24 via 10.0.0.9" for i in range(3000)))
        self.start_publisher("default")
        self.expect(lambda: len(self.rows("routes", "11.0.0.0/8", "-l")), lambda: 3000, "routes")
        reader = subprocess.Popen([*self.command, "routes"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=self.environment)
        self.assertTrue(reader.stdout.readline())  # it goes on until the pipe is full, and waits
        try:
            used = self.store_use()
            for turn in range(20):
                self.namespace.ip(*(f"route change 11.0.{i}.0/24 via 10.0.0.{(i + turn) % 8 + 10}" for i in range(200)))
                self.assertEqual(len(self.rows("routes", "11.0.0.0/8", "-l")), 3000)
            self.assertLess(self.store_use(), 2 * used)
        finally:
            reader.stdout.close()
        self.assertEqual((reader.wait(60), reader.stderr.read()), (-signal.SIGPIPE, b""))
        reader.stderr.close()

    def store_use(self):
        return os.path.getsize(os.path.join(self.store, "data.mdb"))

    def test_watch(self):
        self.serve_two_vrfs()
        eventually(lambda: self.rows("counters"), "no counters")
        watch = self.start("quorinctl", "--store", self.store, "watch", "--json", "routes", "neighbours", "interfaces", "-V", "default")
        watch.wait_for_output("watching")
        people = self.start("quorinctl", "--store", self.store, "watch", "neighbours")
        people.wait_for_output("watching")

        def seen(*expected):
            line = watch.wait_for_output(".*".join(map(re.escape, expected)))
            return json.loads(line)

        self.vrfs.namespaces["red"].ip("route add 10.66.0.0/16 via 10.0.0.9")
        self.namespace.ip("route add 10.66.0.0/16 via 10.0.0.9")
        self.assertEqual(seen('"10.66.0.0/16"', '"set"')["to"]["nexthops"], [{"via": "10.0.0.9", "dev": "a0"}])
        self.namespace.ip("route change 10.66.0.0/16 via 10.0.0.8")
        event = seen('"10.66.0.0/16"', '"changed"')
        self.assertEqual([event[side]["nexthops"][0]["via"] for side in ("from", "to")], ["10.0.0.9", "10.0.0.8"])
        self.namespace.ip("route del 10.66.0.0/16", "neigh change 10.0.0.9 lladdr 02:00:00:00:00:77 dev a0")
        event = seen("10.0.0.9 dev a0", "changed")
        people.wait_for_output("default +10.0.0.9 dev a0 +changed +lladdr 02:00:00:00:00:09 -> 02:00:00:00:00:77$")
        self.namespace.ip("link set a0 down")
        self.assertEqual([event[side]["lladdr"][-2:] for side in ("from", "to")], ["09", "77"])
        seen('"10.66.0.0/16"', '"deleted"', '"from"')
        seen('"a0 (interface/status)"', '"operStatusDown"')
        self.assertNotIn('"red"', watch.output())
        watch.process.send_signal(signal.SIGINT)
        self.assertEqual(watch.wait(), 0)

    def test_damaged_records(self):
        self.serve_two_vrfs()
        for arguments in (("store", "check"), ("status",)):
            self.ctl(*arguments, status=OK if arguments[0] == "store" else WARNING)
        before = self.rows("store", "size")
        self.assertEqual({row["table"]: row["records"] for row in before["tables"]}["arp"], 2)
        lines = [json.loads(line) for line in self.ctl("store", "dump")[0].splitlines()]
        self.assertEqual(len(lines), sum(row["records"] for row in before["tables"]))
        self.assertEqual(before["journal"]["entries"], len(lines) + before["tombstones"]["count"])
        self.mirror.process.send_signal(signal.SIGSTOP)  # it would make the store anew
        self.addCleanup(self.mirror.process.send_signal, signal.SIGCONT)
        path = os.path.join(self.store, "data.mdb")
        with open(path, "rb") as file:
            data = file.read()
        prefix = b"\x04\0\0\1" + bytes((10, 0, 0, 0, 24))  # in VRF 1; the record's value is behind the key
        for at in (match.start() for match in re.finditer(re.escape(prefix), data)):
            data = data[:at + 20] + bytes((data[at + 20] ^ 1,)) + data[at + 21:]
        with open(path, "r+b") as file:
            file.write(data)
        report = self.rows("store", "check", status=CRITICAL)
        self.assertEqual([row["key"] for row in report["damaged"]], ["route 10.0.0.0/24 in VRF red"])
        self.assertIn("route 10.0.0.0/24 in VRF red", self.ctl("store", "check", status=CRITICAL)[0])
        rows, errors = self.ctl("routes", "red", status=WARNING)
        self.assertIn("0.0.0.0/0", rows)
        self.assertNotIn("10.0.0.0/24", rows)
        self.assertIn("left out: route 10.0.0.0/24 in VRF red", errors)
        self.assertEqual(self.rows("routes", "red", "10.0.0.7", status=WARNING), [])
        self.assertRegex(self.ctl("status", status=WARNING)[0], "1 record damaged: route 10.0.0.0/24 in VRF red")
        cut = os.path.join(self.directory, "cut")
        shutil.copytree(self.store, cut)
        os.truncate(os.path.join(cut, "data.mdb"), 5000)
        for command in ("routes", "dump"):
            self.assertIn("damaged", self.ctl("--store", cut, command, status=CRITICAL)[1])

    def test_status(self):
        self.assertRegex(self.ctl("status", status=CRITICAL)[0], "^CRITICAL - .*\n +What to do: .*quorin-mirrord")
        self.ctl("routes", status=CRITICAL)
        self.serve_two_vrfs()
        lock = os.path.join(self.store, "publisher.lock")
        self.assertRegex(self.ctl("status", status=WARNING)[0], f"^WARNING - the agent is not reachable: {self.socket}.*\n +What to do")
        self.ctl("contexts", status=CRITICAL)
        agent = FakeAgent(self.socket)
        self.assertRegex(self.ctl("status", "--perfdata")[0],
                         r"(?s)^OK - 2 VRFs, .*\| vrfs=2 .*damage=0.*Publisher +quorin-mirrord \(pid \d+\) is alive.*1,234 requests, .*12.5 ms")
        self.assertEqual(self.rows("status")["publisher"]["pid"], self.mirror_pid())
        self.assertEqual(self.rows("contexts"), agent.answers["contexts"]["contexts"])
        self.assertIn("2.000", self.ctl("turns")[0])
        for change, status, words in (({"stale": True}, CRITICAL, "too old"), ({"ready": False}, WARNING, "not ready"),
                                      ({"store": "/"}, WARNING, "another store: /"),
                                      ({"master": False}, WARNING, "no AgentX master")):
            with self.subTest(change):
                agent.status = {**FakeAgent.status, **change}
                self.assertRegex(self.ctl("status", status=status)[0], words)
        agent.status = FakeAgent.status
        self.mirror.process.send_signal(signal.SIGSTOP)
        os.utime(lock, (time.time() - 100,) * 2)
        try:
            self.assertRegex(self.ctl("status", status=WARNING)[0], "quorin-mirrord .* is silent for 10[0-9] s")
        finally:
            self.mirror.process.send_signal(signal.SIGCONT)
        self.mirror.stop()
        for file, age in ("doorbell", 1000), ("publisher.lock", 100):  # the last commit, the last report
            os.utime(os.path.join(self.store, file), (time.time() - age,) * 2)
        self.assertRegex(self.ctl("status", status=CRITICAL)[0],
                         r"^CRITICAL - no publisher runs; nothing is up to date since .* \(10\d s ago\)")
        self.assertIn("no publisher runs: this is the state of", self.ctl("routes")[1])
        self.assertEqual(self.rows("status", status=CRITICAL)["problems"][0]["severity"], "CRITICAL")
        with self.subTest("another user"):
            os.chmod(self.directory, 0o755)
            self.command = self.namespace.wrap(["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups",
                                                *self.command[-1:]])
            self.assertRegex(self.ctl("status", status=UNKNOWN)[0], "^UNKNOWN - .*group")

    def mirror_pid(self):
        return int(open(os.path.join(self.store, "publisher.lock"), encoding="ascii").read().split()[0])

    def test_completion_and_man_page_know_every_word(self):
        def words(text):
            return set(re.findall(r"^ +([A-Za-z0-9]+) {2,}", text.split("Subcommands:")[-1], re.MULTILINE))

        traced = words(self.ctl("trace", "?", status=UNKNOWN)[1])
        commands = words(self.ctl("--help")[0])
        self.assertLess({"routes", "status"}, commands)
        root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
        completion = read_file(os.path.join(root, "ctl", "quorinctl.bash"))
        page = read_file(os.path.join(root, "docs", "man", "quorinctl.8.scd"))
        self.assertEqual(set(re.search("commands='(.*)'", completion)[1].split()), commands)
        self.assertEqual(set(re.search("(?s)traced='(.*?)'", completion)[1].split()), traced)
        self.assertEqual([word for word in commands if f"*{word}*" not in page], [])

    def test_trace(self):
        agent = FakeAgent(self.socket)
        output, errors = self.ctl("trace", "ipcidrroutetable", "1")
        self.assertRegex(output, r"^\S+  IpBase/2: a\\x1bb\n$")
        self.assertIn("3 lines were lost", errors)
        self.assertEqual(json.loads(self.ctl("trace", "Vrf*/0-7", "1s", "--json")[0].splitlines()[0])["text"], "a\x1bb")
        self.assertEqual(agent.levels, ["IpForward/0-2,7;IpCidrRouteTableIteratorConst/0-9", "Vrf*/0-7"])
        self.assertIn("refuses: no facility, and what to do", self.ctl("trace", "bad/x", status=CRITICAL)[1])


if __name__ == "__main__":
    main()

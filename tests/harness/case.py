"""The frame of a black-box test: a namespace, a directory of VRFs, a store, a configuration, and who may ask."""

import os
import shutil
import signal
import sys
import tempfile
import unittest

from harness.kernel import kernel_tables, vrf_tables
from harness.namespace import Namespace, VrfDirectory
from harness.programs import BIN_DIR, Program
from harness.snmp import IP_FORWARDING, SYS_UP_TIME, Client, SnmpError
from harness.tables import (ADDR, CONTEXT_TABLES, IF_INDEX_BITS, VRF_IF, VRF_TABLES, TornWalk, difference, walk_table,
                            walk_tables)
from harness.tools import eventually

LISTEN = "udp:127.0.0.1:1161"
# Every community may read one context and write none, or both; the user may read all of them.
ACCESS = """
sysName router
sysContact nobody
view all included .1
com2sec all default public
com2sec writer default private
group readers v2c all
group writers v2c writer
access readers "" v2c noauth prefix all none none
access writers "" v2c noauth prefix all all none
createUser alice SHA authentic-pass AES private-pass
group operators usm alice
access operators "" usm priv prefix all all none
"""
# Overwrites memory that is freed, so that a program that goes on reading it fails.
ENVIRONMENT = {"MALLOC_PERTURB_": "85"}
SKIPPED = 77  # what ctest knows as "skipped"


class SystemCase(unittest.TestCase):
    """Gives each test what it needs, and removes it again."""

    communities = ()  # names of VRFs; the community of red is "c-red", and "w-red" may write
    agent_address = LISTEN

    def setUp(self):
        self.programs = []
        self.numbers = {}
        self.directory = tempfile.mkdtemp(prefix="qt-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.namespace = Namespace()
        self.addCleanup(self.namespace.close)
        self.addCleanup(self.stop_programs)
        self.vrfs = VrfDirectory(os.path.join(self.directory, "netns"))
        self.addCleanup(self.vrfs.close)
        self.store = os.path.join(self.directory, "store")
        self.access = ACCESS + "".join(
            f'com2sec -Cn "{name}" {who} default "{letter}-{name}"\n'
            for name in self.communities for letter, who in (("c", "all"), ("w", "writer")))
        self.configuration = self.write_file("quorind.conf", self.access)
        self.client = self.community("private")

    def write_file(self, name, text):
        path = os.path.join(self.directory, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def configure(self, *lines):
        """The agent's configuration is who may ask, and these lines. An agent that runs reads it at a reload."""
        self.write_file("quorind.conf", self.access + "".join(line + "\n" for line in lines))

    def reconfigure(self, *lines):
        self.configure(*lines)
        self.agent.reload()

    def stop_programs(self):
        """Whatever a test left running must still run, and stop cleanly."""
        left = [program for program in reversed(self.programs) if program.is_expected_to_run]
        try:
            for program in left:
                self.assertTrue(program.running, f"{program.name} ended by itself; it said:\n{program.output()}")
            for program in left:
                self.assertEqual(program.stop(), 0, f"{program.name} on SIGTERM; it said:\n{program.output()}")
        finally:
            for program in left:
                program.kill()

    def start(self, name, *arguments, environment=None):
        log = os.path.join(self.directory, f"{len(self.programs)}-{os.path.basename(name)}.log")
        # Each program keeps its state apart; one that is started again finds its own.
        state = os.path.join(self.directory, f"state-{os.path.basename(name)}")
        program = Program(self.namespace, name, arguments, log,
                          {"SNMP_PERSISTENT_DIR": state, **ENVIRONMENT, **(environment or {})})
        self.programs.append(program)
        return program

    def start_mirror(self, *options, environment=None):
        self.mirror = self.start("quorin-mirrord", "-f", "--store", self.store, "--netns-dir", self.vrfs.path, *options,
                                 environment=environment)
        return self.mirror

    def start_agent(self, *options, listen=None, environment=None):
        self.agent = self.start("quorind", "-f", "-C", "-c", self.configuration, "--store", self.store, *options,
                                listen or self.agent_address, environment=environment)
        return self.agent

    def start_system(self, *mirror_options):
        """Mirror and agent, running and complete."""
        self.start_mirror(*mirror_options)
        self.start_agent()
        self.wait_until_complete()

    def wait_until_complete(self):
        self.wait_for_context(self.client, IP_FORWARDING)

    def wait_for_context(self, client, oid=SYS_UP_TIME):
        """Until the object is there. A program that ended meanwhile is a failure."""
        waiting = client.impatient()

        def answers():
            for program in self.programs:
                if program.is_expected_to_run and not program.running:
                    self.fail(f"{program.name} ended; it said:\n{program.output()}")
            return waiting.has(oid)

        eventually(answers, f"no answer for {oid}")

    def community(self, name, timeout=5):
        return Client(self.namespace, self.agent_address, ("-v2c", "-c", name), timeout)

    def user(self, context, name="alice", options=()):
        return Client(self.namespace, self.agent_address, (
            "-v3", "-u", name, "-l", "authPriv", "-a", "SHA", "-A", "authentic-pass", "-x", "AES", "-X", "private-pass",
            "-n", context, *options))

    def client_of(self, name):
        """Asks in the context of that VRF; None is the default one."""
        return self.community(f"c-{name}") if name else self.client

    def addresses(self, client=None):
        """ipAddrTable, as far as a walk saw it."""
        return walk_table(client or self.client, ADDR, may_be_torn=True)

    def vrf_id(self, name):
        """The number of a VRF, from the indexes of its interfaces. It stays, so it is asked for once."""
        if name and name not in self.numbers:
            for (index,), row in walk_table(self.client, VRF_IF).items():
                if index >> IF_INDEX_BITS:  # interfaces of VRF devices have none
                    self.numbers[bytes.fromhex(row[1]).decode("utf-8", "surrogateescape")] = index >> IF_INDEX_BITS
        return self.numbers[name] if name else 0

    def expect(self, served, expected, what):
        """`served` becomes what `expected` gives. Both are asked again and again, since both may change."""
        last = {}

        def same():
            try:
                last["served"], last["expected"] = served(), expected()
            except (TornWalk, SnmpError, KeyError) as error:
                last["served"] = error
                return False
            return last["served"] == last["expected"]

        eventually(same, lambda: f"{what}: {difference(last['served'], last.get('expected'))}", interval=0.02)

    def expect_context(self, name=None, client=None, entries=CONTEXT_TABLES):
        """The tables of a VRF's context are the kernel's, row for row."""
        namespace = self.vrfs.namespaces[name] if name else self.namespace
        self.expect(lambda: walk_tables(client or self.client_of(name), *entries),
                    lambda: kernel_tables(namespace, self.vrf_id(name), entries), f"context {name}")

    def expect_vrf_tables(self, distinguishers=()):
        """The VRF tables list every VRF that was made."""
        self.expect(lambda: walk_tables(self.client, *VRF_TABLES),
                    lambda: vrf_tables(self.vrfs.namespaces, self.vrf_id, dict(distinguishers)), "VRFs")

    def expect_one_answer(self, client, root):
        """GET, GETNEXT and GETBULK give the same values, once no counter changes between them; returns them."""
        def some_of(binds):
            return binds[:60], binds[-60:]

        def served():
            walked[:] = client.walk(root)
            return [client.walk(root, "snmpwalk"), *(client.get(*(bind.oid for bind in some)) for some in some_of(walked))]

        walked = []
        self.expect(served, lambda: [walked, *some_of(walked)], f"GET, GETNEXT and GETBULK of {root}")
        return walked


class Result(unittest.TextTestResult):
    """Shows each failure at once, and what the programs said."""

    def show(self, test, err):
        self.stream.writeln(f"{test}: {str(err[1])[:4000]}")
        for program in getattr(test, "programs", ()):
            title = f"--- {program.name} ({program.pid}, status {program.process.poll()}):"
            self.stream.writeln("\n".join([title, *program.lines()[-40:]]))

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self.show(test, err)

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err:
            self.show(test, err)

    def addError(self, test, err):
        super().addError(test, err)
        self.show(test, err)


def main(seconds=840):
    """Runs the tests of the calling file. `seconds` bounds it: the clean-up must come before ctest's limit."""
    if os.geteuid() != 0:
        print("skipped: needs root, to make network namespaces")
        sys.exit(SKIPPED)
    if not os.path.isfile(os.path.join(BIN_DIR, "quorind")):
        sys.exit(f"no quorind in QUORIN_BIN_DIR='{BIN_DIR}'; ctest sets it, by hand it is build/<preset>/bin")

    def out_of_time(number, frame):
        raise TimeoutError(f"the tests of this file took longer than {seconds} s")

    signal.signal(signal.SIGALRM, out_of_time)
    signal.alarm(seconds)
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(1))
    unittest.main(testRunner=unittest.TextTestRunner(resultclass=Result, verbosity=2))

"""The frame of a black-box test: one namespace, one store, one configuration."""

import contextlib
import os
import shutil
import signal
import sys
import tempfile
import threading
import time
import unittest

from harness.namespace import PATIENCE, Namespace
from harness.programs import BIN_DIR, Program
from harness.snmp import IP_FORWARDING, Client
from harness.tables import kernel_rows

LISTEN = "udp:127.0.0.1:1161"
CONFIGURATION = "rwcommunity private 127.0.0.1\n"
SKIPPED = 77  # what ctest knows as "skipped"


def eventually(condition, what, timeout=PATIENCE, interval=0.01):
    """Asks again until the condition holds; `what` says what did not come true. Returns what the condition gave."""
    end = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {timeout} s: {what() if callable(what) else what}")
        time.sleep(interval)


@contextlib.contextmanager
def background(step):
    """Calls `step` over and over in a thread of its own until the block ends. What goes wrong there fails the block."""
    ended, failures = threading.Event(), []

    def work():
        try:
            while not ended.is_set():
                step()
        except Exception as error:  # pylint: disable=broad-except; raised in the caller's thread
            failures.append(error)

    thread = threading.Thread(target=work)
    thread.start()
    try:
        yield
    finally:
        ended.set()
        thread.join()
    if failures:
        raise failures[0]


class SystemCase(unittest.TestCase):
    """Gives each test a namespace, a private directory for store and configuration, and a client."""

    def setUp(self):
        self.programs = []
        self.directory = tempfile.mkdtemp(prefix="qt-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.namespace = Namespace()
        self.addCleanup(self.namespace.close)
        self.addCleanup(self.stop_programs)
        self.store = os.path.join(self.directory, "store")
        self.configuration = os.path.join(self.directory, "quorind.conf")
        self.write_configuration(CONFIGURATION)
        self.client = Client(self.namespace)

    def write_configuration(self, text):
        with open(self.configuration, "w", encoding="utf-8") as file:
            file.write(text)

    def stop_programs(self):
        """Whatever a test left running must still stop cleanly."""
        left = [program for program in reversed(self.programs) if program.running]
        try:
            for program in left:
                self.assertEqual(program.stop(), 0, f"{program.name} on SIGTERM; it said:\n{program.output()}")
        finally:
            for program in left:
                program.kill()

    def start(self, name, *arguments, environment=None):
        log = os.path.join(self.directory, f"{len(self.programs)}-{os.path.basename(name)}.log")
        # Each program keeps its state apart; one that is started again finds its own.
        state = os.path.join(self.directory, f"state-{os.path.basename(name)}")
        program = Program(self.namespace, name, arguments, log, {"SNMP_PERSISTENT_DIR": state, **(environment or {})})
        self.programs.append(program)
        return program

    def start_mirror(self):
        return self.start("quorin-mirrord", "-f", "--store", self.store)

    def start_agent(self, *arguments, listen=LISTEN, environment=None):
        options = ("-f", "-C", "-c", self.configuration, "--store", self.store)
        return self.start("quorind", *options, *arguments, listen, environment=environment)

    def start_system(self):
        """Mirror and agent, running and complete."""
        self.mirror = self.start_mirror()
        self.agent = self.start_agent()
        self.wait_until_complete()

    def wait_until_complete(self):
        waiting = self.client.impatient()

        def complete():
            for program in self.programs:
                self.assertTrue(program.running or not program.is_expected_to_run, f"{program.name} ended; it said:\n{program.output()}")
            return waiting.has(IP_FORWARDING)

        eventually(complete, "the agent does not answer ipForwarding.0")

    def expect_rows(self, expected=None):
        """The agent's ipAddrTable becomes the expected one, by default the kernel's, and nothing else."""
        def wanted():
            return kernel_rows(self.namespace) if expected is None else expected

        eventually(lambda: self.client.ip_addr_rows() == wanted(),
                   lambda: f"agent {self.client.ip_addr_rows()}\nexpected {wanted()}")

    def report(self):
        """What the programs said last, for a failed test."""
        lines = []
        for program in self.programs:
            lines += [f"--- {program.name} ({program.pid}):", *program.lines()[-40:]]
        return "\n".join([*lines, ""])


class Result(unittest.TextTestResult):
    """Shows each failure at once, and what the programs said."""

    def show(self, test, err):
        self.stream.writeln(f"{test}: {str(err[1])[:400]}")
        if isinstance(test, SystemCase):
            self.stream.write(test.report())

    def addFailure(self, test, err):
        super().addFailure(test, err)
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

"""The programs under test, as child processes."""

import os
import signal
import subprocess
import time

from harness.namespace import PATIENCE

BIN_DIR = os.environ.get("QUORIN_BIN_DIR", "")
SANITIZER_SIGNS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:")


class Program:
    """One started program. Its output goes to a file that `output()` reads. It never outlives the test."""

    def __init__(self, namespace, name, arguments, log_path, environment=None):
        self.name = name
        self.log_path = log_path
        path = os.path.join(BIN_DIR, name)
        with open(log_path, "ab") as log:
            self.process = subprocess.Popen(
                namespace.wrap(["setpriv", "--pdeathsig", "KILL", path, *arguments]),
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, env={**os.environ, **(environment or {})})
        self.is_expected_to_run = True

    @property
    def pid(self):
        return self.process.pid

    @property
    def running(self):
        return self.process.poll() is None

    def output(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as log:
            return log.read()

    def lines(self):
        return [line for line in self.output().splitlines() if line.strip()]

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self, timeout=PATIENCE):
        """Waits for the program to end by itself; returns its status."""
        self.is_expected_to_run = False
        try:
            status = self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"{self.name} still runs after {timeout} s; it said:\n{self.output()}") from None
        for sign in SANITIZER_SIGNS:
            if sign in self.output():
                raise AssertionError(f"{self.name}: {sign}\n{self.output()}")
        return status

    def stop(self):
        """A stop as a service manager does it; returns the status, which is 0 for a clean one."""
        self.is_expected_to_run = False
        self.signal(signal.SIGTERM)
        return self.wait()

    def kill(self):
        self.is_expected_to_run = False
        self.process.kill()
        self.process.wait()

    def wait_for_output(self, pattern, timeout=PATIENCE):
        """Waits until a line matches the compiled pattern; returns it."""
        end = time.monotonic() + timeout
        while True:
            for line in self.lines():
                if pattern.search(line):
                    return line
            if time.monotonic() > end:
                raise AssertionError(f"{self.name} did not say {pattern.pattern!r} in time:\n{self.output()}")
            time.sleep(0.02)

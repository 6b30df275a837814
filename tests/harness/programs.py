"""The programs under test, as child processes."""

import os
import re
import signal
import subprocess

from harness.tools import PATIENCE, eventually, read_file

BIN_DIR = os.environ.get("QUORIN_BIN_DIR", "")
SANITIZER_SIGNS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:")


class Program:
    """One started program. Its output goes to a file that `output()` reads. It never outlives the test."""

    def __init__(self, namespace, name, arguments, log_path, environment):
        self.name = name
        self.log_path = log_path
        path = os.path.join(BIN_DIR, name)
        with open(log_path, "ab") as log:
            self.process = subprocess.Popen(
                namespace.wrap(["setpriv", "--pdeathsig", "KILL", path, *arguments]),
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, env={**os.environ, **environment})
        self.pid = self.process.pid
        self.is_expected_to_run = True

    @property
    def running(self):
        return self.process.poll() is None

    def output(self):
        return read_file(self.log_path)

    def lines(self):
        return [line for line in self.output().splitlines() if line.strip()]

    def wait(self, timeout=PATIENCE):
        """Waits for the program to end by itself; returns its status."""
        self.is_expected_to_run = False
        try:
            status = self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"{self.name} still runs after {timeout} s; it said:\n{self.output()}") from None
        if any(sign in self.output() for sign in SANITIZER_SIGNS):
            raise AssertionError(f"{self.name}:\n{self.output()}")
        return status

    def stop(self):
        """A stop as a service manager does it; returns the status, which is 0 for a clean one."""
        self.process.terminate()
        return self.wait()

    def kill(self):
        self.is_expected_to_run = False
        self.process.kill()
        self.process.wait()

    def reload(self):
        """Makes the agent read its configuration again; returns when it has."""
        reloads = self.output().count("read again")
        self.process.send_signal(signal.SIGHUP)
        eventually(lambda: self.output().count("read again") > reloads, "no reload")

    def wait_for_output(self, pattern):
        """Waits until a line matches the pattern; returns it."""
        return eventually(lambda: next((line for line in self.lines() if re.search(pattern, line)), None),
                          lambda: f"{self.name} says {pattern!r}; it said:\n{self.output()}", interval=0.02)

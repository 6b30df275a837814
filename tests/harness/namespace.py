"""A network namespace of a test's own."""

import itertools
import json
import os
import subprocess

# How long a test waits, in seconds, for what must come true. A wait ends when it does, so this is only ever used up by a
# failure; it is ample, since the machine may be busy with other work.
PATIENCE = 60


class CommandFailed(Exception):
    pass


def run_command(command, input_text=None, check=True):
    """Runs a command and returns its CompletedProcess; a failure names the command and its own words."""
    done = subprocess.run(command, input=input_text, capture_output=True, text=True, timeout=2 * PATIENCE)
    if check and done.returncode != 0:
        raise CommandFailed(f"{' '.join(command)}: status {done.returncode}: {done.stderr.strip()}")
    return done


class Namespace:
    """Named <prefix>-<pid>-<number>, so that tests run in parallel; lo is up. `close` removes it and what is in it."""

    numbers = itertools.count()

    def __init__(self, prefix="qt"):
        self.name = f"{prefix}-{os.getpid()}-{next(self.numbers)}"
        run_command(["ip", "netns", "add", self.name])
        self.ip("link", "set", "lo", "up")

    def close(self):
        run_command(["ip", "netns", "del", self.name], check=False)

    def wrap(self, command):
        """The command as it must be started to run inside."""
        return ["ip", "netns", "exec", self.name, *command]

    def run(self, *command, check=True):
        return run_command(self.wrap(command), check=check)

    def ip_command(self, *arguments):
        return ["ip", "-n", self.name, *arguments]

    def ip(self, *arguments):
        run_command(self.ip_command(*arguments))

    def ip_batch(self, lines):
        """Many `ip` commands in one process; stops at the first that fails."""
        run_command(self.ip_command("-batch", "-"), input_text="\n".join(lines) + "\n")

    def ip_json(self, *arguments):
        return json.loads(run_command(self.ip_command("-j", *arguments)).stdout or "[]")

    def add_interface(self, name, *addresses, up=True):
        """A veth whose other end, `<name>-p`, stays in the same namespace and is up, so that there is a carrier."""
        self.ip_batch([f"link add {name} type veth peer name {name}-p", f"link set {name}-p up",
                       *([f"link set {name} up"] if up else []),
                       *(f"addr add {address} dev {name}" for address in addresses)])

    def add_address(self, interface, *address):
        self.ip("addr", "add", *address, "dev", interface)

    def del_address(self, interface, *address):
        self.ip("addr", "del", *address, "dev", interface)

    def if_index(self, interface):
        return self.ip_json("link", "show", "dev", interface)[0]["ifindex"]

    def sysctl(self, name, value):
        self.run("sysctl", "-q", "-w", f"{name}={value}")

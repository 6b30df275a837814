"""Network namespaces of a test's own, and a directory of them that no other mirror reads."""

import itertools
import json
import os

from harness.tools import run_command


class Namespace:
    """Named qt-<pid>-<number>, so that tests run in parallel; lo is up. `close` removes it and its contents."""

    numbers = itertools.count()
    is_default = True  # the default VRF of a test

    def __init__(self):
        self.name = f"qt-{os.getpid()}-{next(self.numbers)}"
        run_command(["ip", "netns", "add", self.name])
        self.ip("link set lo up")

    def close(self):
        run_command(["ip", "netns", "del", self.name], check=False)

    def wrap(self, command):
        """The command as it must be started to run inside."""
        return ["ip", "netns", "exec", self.name, *command]

    def run(self, *command, check=True):
        return run_command(self.wrap(command), check=check)

    def ip(self, *lines, may_fail=False):
        """`ip` commands in one process, which stops at the first that fails unless they may."""
        options = ["-force"] if may_fail else []
        run_command(self.wrap(["ip", *options, "-batch", "-"]), input_text="\n".join(lines) + "\n", check=not may_fail)

    def ip_json(self, *arguments):
        return json.loads(self.run("ip", "-j", *arguments).stdout or "[]")

    def add_interface(self, name, *addresses):
        """A veth whose other end, `<name>-p`, stays in the same namespace and is up, so that there is a carrier."""
        self.ip(f"link add {name} type veth peer name {name}-p", f"link set {name}-p up", f"link set {name} up",
                *(f"addr add {address} dev {name}" for address in addresses))

    def sysctl(self, name, value):
        self.run("sysctl", "-q", "-w", f"{name}={value}")

    def send(self, target, datagrams, port=9):
        """Sends these UDP datagrams, by default to the discard port."""
        family = "AF_INET6" if ":" in target else "AF_INET"
        run_command(self.wrap(["python3", "-c", "import socket, sys\n"
                               f"with socket.socket(socket.{family}, socket.SOCK_DGRAM) as sender:\n"
                               f"  for line in sys.stdin: sender.sendto(bytes.fromhex(line), ({target!r}, {port}))"]),
                    input_text="\n".join(datagram.hex() for datagram in datagrams))


class VrfNamespace(Namespace):
    """A namespace that a mount on a file holds; lo is down."""

    is_default = False

    def __init__(self, file):  # pylint: disable=super-init-not-called
        self.name = self.file = file
        with open(file, "x", encoding="ascii"):
            pass
        run_command(["unshare", f"--net={file}", "true"])

    def close(self):
        run_command(["umount", "--lazy", "--no-canonicalize", self.file])
        os.unlink(self.file)

    def wrap(self, command):
        return ["nsenter", f"--net={self.file}", *command]


class VrfDirectory:
    """What a mirror gets as --netns-dir: `add("red")` is `ip netns add ns-red` there. `close` removes all of it."""

    def __init__(self, path):
        self.path = path
        self.namespaces = {}
        os.mkdir(path)
        # A program that was started in a namespace sees only mounts below a shared one.
        run_command(["mount", "--bind", path, path])
        run_command(["mount", "--make-shared", path])

    def file(self, name):
        return os.path.join(self.path, f"ns-{name}")

    def add(self, name, *lines):
        """A VRF with lo up and whatever else the `ip` commands make."""
        namespace = self.namespaces[name] = VrfNamespace(self.file(name))
        namespace.ip("link set lo up", *lines)
        return namespace

    def remove(self, name):
        self.namespaces.pop(name).close()

    def close(self):
        for name in list(self.namespaces):
            self.remove(name)
        run_command(["umount", "--lazy", self.path])

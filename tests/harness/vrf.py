"""VRFs of a test's own: network namespaces in a directory that no other mirror reads."""

import ctypes
import os
import threading

from harness.namespace import Namespace

CLONE_NEWNET = 0x40000000
MS_BIND = 1 << 12
MS_SHARED = 1 << 20
MNT_DETACH = 2
libc = ctypes.CDLL(None, use_errno=True)


def system_call(function, *arguments):
    if function(*(os.fsencode(value) if isinstance(value, str) else value for value in arguments)) != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{function.__name__}: {os.strerror(number)}", *arguments[:1])


def bind(source, target):
    system_call(libc.mount, source, target, None, MS_BIND, None)


def unbind(target):
    system_call(libc.umount2, target, MNT_DETACH)


def make_namespace(file):
    """A new network namespace, held by a mount on the file; without a process, since some tests make hundreds."""
    failures = []

    def work():
        try:
            system_call(libc.unshare, CLONE_NEWNET)  # of this thread alone
            bind("/proc/thread-self/ns/net", file)
        except OSError as error:
            failures.append(error)

    thread = threading.Thread(target=work)
    thread.start()
    thread.join()
    if failures:
        raise failures[0]


class VrfNamespace(Namespace):
    """A namespace that a file holds; lo is down."""

    def __init__(self, file):
        self.name = self.file = file
        with open(file, "x", encoding="ascii"):
            pass
        make_namespace(file)

    def close(self):
        unbind(self.file)
        os.unlink(self.file)

    def wrap(self, command):
        return ["nsenter", f"--net={self.file}", *command]

    def ip_command(self, *arguments):
        return self.wrap(["ip", *arguments])


class VrfDirectory:
    """What a mirror gets as --netns-dir: `add("red")` is `ip netns add ns-red` there. `close` removes all of it."""

    def __init__(self, path):
        self.path = path
        self.namespaces = {}
        os.mkdir(path)
        # A program that was started in a namespace sees only mounts below a shared one.
        bind(path, path)
        system_call(libc.mount, None, path, None, MS_SHARED, None)

    def file(self, name):
        return os.path.join(self.path, f"ns-{name}")

    def add(self, name, *batch):
        """A VRF with lo up and whatever else the lines for `ip -batch` make."""
        namespace = self.namespaces[name] = VrfNamespace(self.file(name))
        namespace.ip_batch(["link set lo up", *batch])
        return namespace

    def remove(self, name):
        self.namespaces.pop(name).close()

    def close(self):
        for name in list(self.namespaces):
            self.remove(name)
        unbind(self.path)


class KernelReading:
    """What `ip -j -d` and the kernel's files say of a namespace; nothing is asked twice until `again`."""

    def __init__(self, namespace):
        self.namespace = namespace
        self.said = {}

    def again(self):
        self.said.clear()

    def ask(self, function, *arguments):
        if (function, arguments) not in self.said:
            self.said[function, arguments] = function(*arguments)
        return self.said[function, arguments]

    def ip_json(self, *arguments):
        return self.ask(self.namespace.ip_json, "-d", *arguments)


class DeviceVrf:
    """What a namespace has in one of its VRF devices, or in none of them (no name), to be asked like a namespace."""

    def __init__(self, reading, device=None):
        self.reading = reading
        self.device = device

    def run(self, *command):
        return self.reading.ask(self.reading.namespace.run, *command)

    def ip_json(self, *arguments):
        links = {link["ifname"]: link for link in self.reading.ip_json("addr")}
        tables = {name: str(link["linkinfo"]["info_data"]["table"]) for name, link in links.items()
                  if link.get("linkinfo", {}).get("info_kind") == "vrf"}
        if "route" in arguments:  # the callers ask for a namespace's table main
            table = tables.get(self.device) if self.device else "main"
            routes = self.reading.ip_json(arguments[0], "route", "show", "table", "all")
            return [route for route in routes if route.get("table", "main") == table]
        if "link" in arguments:  # all of them, since a route may lead through another VRF
            return list(links.values())

        def device_of(name):
            owner = name if name in tables else links[name].get("master")
            return owner if owner in tables else None

        return [entry for entry in self.reading.ip_json(*arguments)
                if device_of(entry.get("ifname") or entry["dev"]) == self.device]

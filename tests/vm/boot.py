"""Runs a suite of this folder as root on Debian's kernel, in a virtual machine of its own; see ../README.md.

The machine is emulated, so it needs neither KVM nor root, and it has no disk and no network: its files are an initramfs
made from this machine's. Its clock counts instructions (8 ns each) and skips idle time, so a wait costs only what the
guest does meanwhile, and no load of this machine makes one run out."""

import argparse
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
KERNEL = os.path.join(HERE, "..", "..", "build", "vm")  # where `scripts/install-deps vm` puts it
SKIPPED = 77  # what ctest knows as "skipped"
SUITE_PATHS = [HERE, os.path.dirname(HERE)]
PYTHON = ["/usr/bin/python3", "-BS"]
PROGRAMS = [PYTHON[0], *(f"/usr/lib/frr/{name}" for name in ("zebra", "staticd", "bgpd")), "vtysh",
            "ip", "mount", "nsenter", "setpriv", "sysctl", "umount", "unshare",
            "snmpget", "snmpwalk", "snmpbulkwalk"]
OURS = ["quorind", "quorin-mirrord"]
OTHERS = ["/bin/busybox", "/etc/passwd", "/etc/group"]
QEMU = ["qemu-system-x86_64", "-accel", "tcg", "-icount", "shift=3,sleep=off", "-cpu", "max", "-smp", "1", "-m", "1024",
        "-nodefaults", "-no-user-config", "-no-reboot", "-display", "none",
        "-append", "console=ttyS0 loglevel=3 nokaslr panic=-1 rdinit=/init"]


def python_files(suite):
    """The sources, compiled sources and extensions of what the suite imports."""
    code = (f"import sys; sys.path += {SUITE_PATHS!r}; import encodings.ascii, {suite}\n"
            "for module in list(sys.modules.values()):\n"
            "  print(getattr(module, '__file__', ''), getattr(module, '__cached__', ''), sep='\\n')")
    said = subprocess.run([*PYTHON, "-c", code], stdout=subprocess.PIPE, text=True, check=True).stdout
    return [path for path in said.splitlines() if os.path.isfile(path)]


def libraries(files):
    said = subprocess.run(["ldd", *files], capture_output=True, text=True, check=False).stdout
    return re.findall(r"(/\S+) \(0x", said)


def make_initramfs(file, suite, command):
    bin_dir = os.environ["QUORIN_BIN_DIR"]
    programs = [shutil.which(name, path="/usr/sbin:/usr/bin") or sys.exit(f"no {name}; run: scripts/install-deps vm")
                for name in PROGRAMS]
    own = [os.path.abspath(os.path.join(bin_dir, name)) for name in OURS]
    python = python_files(suite)
    needed = libraries(programs + own + [path for path in python if path.endswith(".so")])
    with tempfile.TemporaryDirectory() as root:
        os.chmod(root, 0o755)  # FRR's user must get in
        for path in {*programs, *own, *python, *needed, *OTHERS}:
            os.makedirs(root + os.path.dirname(path), exist_ok=True)
            shutil.copy2(path, root + path)  # with its time, by which Python knows its compiled sources
        subprocess.run(["strip", *(root + path for path in own)], check=True)
        modules = [entry.path for entry in os.scandir(KERNEL) if entry.name.endswith(".ko")]
        for path in [os.path.join(HERE, "init"), *modules]:
            shutil.copy(path, root)
        with open(f"{root}/suite", "w", encoding="utf-8") as script:
            environment = {"QUORIN_BIN_DIR": os.path.abspath(bin_dir), "PYTHONPATH": SUITE_PATHS[1]}
            script.write("".join(f"export {name}={shlex.quote(value)}\n" for name, value in environment.items()))
            script.write(shlex.join(command) + "\n")
        names = subprocess.run(["find", "."], cwd=root, stdout=subprocess.PIPE, check=True).stdout
        subprocess.run(["busybox", "cpio", "-o", "-H", "newc"], cwd=root, input=names, stdout=file,
                       stderr=subprocess.DEVNULL, check=True)


def run(suite, command, limit, is_interactive):
    """The status of the command in the guest."""
    with tempfile.NamedTemporaryFile() as initramfs:
        make_initramfs(initramfs, suite, command)
        initramfs.flush()
        machine = [*QEMU, "-kernel", os.path.join(KERNEL, "vmlinuz"), "-initrd", initramfs.name]
        if is_interactive:
            return subprocess.run([*machine, "-serial", "mon:stdio"], check=False).returncode
        status = None
        with subprocess.Popen(["timeout", str(limit), *machine, "-serial", "stdio"], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, text=True, errors="replace") as guest:
            for line in guest.stdout:
                print(line.rstrip("\r\n"), flush=True)
                ended = re.match(r"vm: status (\d+)", line)
                status = int(ended[1]) if ended else status
    if status is None:
        sys.exit(f"the guest did not end by itself within {limit} s")
    return status


def main():
    parser = argparse.ArgumentParser(description="Runs a suite in a virtual machine.")
    parser.add_argument("suite", help="such as vrf_devices")
    parser.add_argument("tests", nargs="*", help="such as VrfDevicesTest.test_leaks; all of the suite unless given")
    parser.add_argument("--shell", action="store_true", help="a shell instead; the suite is $SUITE, Ctrl-A X ends it")
    parser.add_argument("--limit", type=int, default=1000, help="seconds until the machine is stopped (%(default)s)")
    options = parser.parse_args()
    if not os.path.exists(os.path.join(KERNEL, "vmlinuz")):
        print("skipped: no kernel; run: scripts/install-deps vm")
        sys.exit(SKIPPED)
    name = f"{options.suite}_test"
    file = os.path.join(HERE, f"{name}.py")
    command = ["env", f"SUITE={file}", "sh"] if options.shell else [*PYTHON, file, *options.tests]
    sys.exit(run(name, command, options.limit, options.shell))


if __name__ == "__main__":
    main()

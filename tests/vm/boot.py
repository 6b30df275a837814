"""Runs a suite of this folder as root on Debian's kernel, in a virtual machine of its own; see ../README.md.

The machine is emulated, so it needs neither KVM nor root, and it has no disk and no network: its files are an initramfs
made from this machine's, or for the suite that installs our packages, from a Debian of its own. Its clock counts
instructions (8 ns each) and skips idle time, so a wait costs only what the guest does meanwhile, and no load of this
machine makes one run out."""

import argparse
import glob
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
BUILD = os.path.join(HERE, "..", "..", "build")
KERNEL = os.path.join(BUILD, "vm")  # where `scripts/install-deps vm` puts it
DEBIAN = os.path.join(KERNEL, "debian.cpio")  # and this
PACKAGES = os.path.join(BUILD, "packages")  # where scripts/build-packages puts them
ON_DEBIAN = ("install",)  # the suites that install them, on a Debian with systemd
SKIPPED = 77  # what ctest knows as "skipped"
SUITE_PATHS = [HERE, os.path.dirname(HERE)]
PYTHON = ["/usr/bin/python3", "-BS"]
PROGRAMS = [PYTHON[0], *(f"/usr/lib/frr/{name}" for name in ("zebra", "staticd", "bgpd")), "vtysh",
            "ip", "mount", "nsenter", "setpriv", "sysctl", "umount", "unshare",
            "snmpget", "snmpwalk", "snmpbulkwalk"]
OURS = ["quorind", "quorin-mirrord"]
OTHERS = ["/bin/busybox", "/etc/passwd", "/etc/group"]
QEMU = ["qemu-system-x86_64", "-accel", "tcg", "-icount", "shift=3,sleep=off", "-cpu", "max", "-smp", "1", "-m", "1024",
        "-nodefaults", "-no-user-config", "-no-reboot", "-display", "none"]
KERNEL_LINE = "console=ttyS0 loglevel=3 nokaslr panic=-1 rdinit="
SYSTEMD = "/lib/systemd/systemd systemd.wants=suite.service systemd.show_status=no systemd.getty_auto=no"


def python_files(suite):
    """The sources, compiled sources and extensions of what the suite imports, also in scripts for namespaces."""
    code = (f"import sys; sys.path += {SUITE_PATHS!r}; import encodings.ascii, array, fcntl, socket, struct, {suite}\n"
            "for module in list(sys.modules.values()):\n"
            "  print(getattr(module, '__file__', ''), getattr(module, '__cached__', ''), sep='\\n')")
    said = subprocess.run([*PYTHON, "-c", code], stdout=subprocess.PIPE, text=True, check=True).stdout
    return [path for path in said.splitlines() if os.path.isfile(path)]


def libraries(files):
    said = subprocess.run(["ldd", *files], capture_output=True, text=True, check=False).stdout
    return re.findall(r"(/\S+) \(0x", said)


def modules():
    """The kernel's modules, and their list in the order in which they can be loaded."""
    return glob.glob(f"{KERNEL}/*.ko") + glob.glob(f"{KERNEL}/kernel.modules")


def write_suite(folder, bin_dir, tests, command):
    with open(f"{folder}/suite", "w", encoding="utf-8") as script:
        environment = {"QUORIN_BIN_DIR": bin_dir, "PYTHONPATH": tests}
        script.write("".join(f"export {name}={shlex.quote(value)}\n" for name, value in environment.items()))
        script.write(shlex.join(command) + "\n")


def write_archive(root, file, *start):
    names = subprocess.run(["find", *start], cwd=root, stdout=subprocess.PIPE, check=True).stdout
    subprocess.run(["busybox", "cpio", "-o", "-H", "newc"], cwd=root, input=names, stdout=file,
                   stderr=subprocess.DEVNULL, check=True)


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
        for path in [os.path.join(HERE, "init"), *modules()]:
            shutil.copy(path, root)
        write_suite(root, os.path.abspath(bin_dir), SUITE_PATHS[1], command)
        write_archive(root, file, ".")


def make_next_package(package, folder):
    """The same package in a higher version."""
    with tempfile.TemporaryDirectory() as tree:
        subprocess.run(["dpkg-deb", "-R", package, f"{tree}/all"], check=True)
        with open(f"{tree}/all/DEBIAN/control", "r+", encoding="utf-8") as control:
            text = control.read()
            version = re.search(r"^Version: (.*)", text, re.MULTILINE)[1]
            control.seek(0)
            control.write(text.replace(version, version + "+next"))
        subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "-b", f"{tree}/all", folder],
                       stdout=subprocess.DEVNULL, check=True)


def make_debian_initramfs(file, suite, command):
    """The Debian, and in /vm the packages in two versions and the suite, which systemd starts. Of other folders only
    files are added: they are the Debian's, with owner and mode."""
    with open(DEBIAN, "rb") as debian, tempfile.TemporaryDirectory() as root:
        shutil.copyfileobj(debian, file)
        file.flush()
        shutil.copytree(SUITE_PATHS[1], f"{root}/vm/tests", ignore=shutil.ignore_patterns("__pycache__"))
        for folder in ("first", "next"):
            os.mkdir(f"{root}/vm/{folder}")
        for package in glob.glob(f"{PACKAGES}/*.deb"):
            if "-dbgsym_" not in package:
                shutil.copy(package, f"{root}/vm/first")
                make_next_package(package, f"{root}/vm/next")
        for path in modules():
            shutil.copy(path, f"{root}/vm")
        write_suite(f"{root}/vm", "/usr/sbin", "/vm/tests", command)
        unit = "etc/systemd/system/suite.service"
        os.makedirs(os.path.dirname(f"{root}/{unit}"))
        shutil.copy(os.path.join(HERE, "suite.service"), f"{root}/{unit}")
        write_archive(root, file, "vm", unit)


def run(suite, command, limit, is_interactive, on_debian):
    """The status of the command in the guest."""
    with tempfile.NamedTemporaryFile() as initramfs:
        (make_debian_initramfs if on_debian else make_initramfs)(initramfs, suite, command)
        initramfs.flush()
        machine = [*QEMU, "-kernel", os.path.join(KERNEL, "vmlinuz"), "-initrd", initramfs.name,
                   "-append", KERNEL_LINE + (SYSTEMD if on_debian else "/init")]
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
    on_debian = options.suite in ON_DEBIAN
    needed = {f"{KERNEL}/vmlinuz": ("kernel", "install-deps vm")}
    if on_debian:
        needed |= {DEBIAN: ("Debian", "install-deps vm"), f"{PACKAGES}/*.deb": ("packages", "build-packages")}
    for path, (what, script) in needed.items():
        if not glob.glob(path):
            print(f"skipped: no {what}; run: scripts/{script}")
            sys.exit(SKIPPED)
    name = f"{options.suite}_test"
    file = os.path.join("/vm/tests/vm" if on_debian else HERE, f"{name}.py")
    command = ["env", f"SUITE={file}", "sh"] if options.shell else [*PYTHON, file, *options.tests]
    sys.exit(run(name, command, options.limit, options.shell, on_debian))


if __name__ == "__main__":
    main()

"""Makes what a machine starts with: the initial RAM disk with the program init, busybox and the kernel modules, and the
device tree."""

import gzip
import shutil
import subprocess
import tempfile
from pathlib import Path

from machines import COMMON_MODULES

INIT = Path(__file__).with_name("init")
APPLETS = ("sh", "mount", "insmod", "sleep", "cat", "ip", "switch_root", "[")


def kernel_version(kernel):
    return next((kernel / "lib" / "modules").iterdir()).name


def module_lines(kernel, modules):
    """File and options of each module and of those that it depends on, in the order of loading."""
    version, lines = kernel_version(kernel), []
    if not (kernel / "lib" / "modules" / version / "modules.dep").exists():
        subprocess.run(["depmod", "-b", kernel, version], check=True)
    for module in modules:
        output = subprocess.run(["modprobe", "-d", kernel, "-S", version, "--show-depends", *module.split()], check=True,
                                capture_output=True, text=True).stdout
        lines += [line.removeprefix("insmod ").strip() for line in output.splitlines() if line.startswith("insmod ")]
    return list(dict.fromkeys(lines))


def add_modules(root, kernel, modules):
    files = set()
    with open(root / "modules" / "ORDER", "w", encoding="utf-8") as order:
        for line in module_lines(kernel, modules):
            file, _, options = line.partition(" ")
            if file not in files:
                files.add(file)
                shutil.copy(file, root / "modules")
                order.write(f"/modules/{Path(file).name} {options}\n")


def make_initrd(output, kernel, machine):
    """`kernel` is a folder with the unpacked packages of the kernel and of busybox."""
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        for name in ("bin", "dev", "proc", "sys", "modules", "root"):
            (root / name).mkdir()
        shutil.copy(INIT, root / "init")
        shutil.copy(kernel / "bin" / "busybox", root / "bin")
        for applet in APPLETS:
            (root / "bin" / applet).symlink_to("busybox")
        add_modules(root, kernel, (*COMMON_MODULES, *machine.modules))
        archive = subprocess.run("find . | cpio --create --format=newc --quiet", shell=True, cwd=root, check=True,
                                 capture_output=True).stdout
    output.write_bytes(gzip.compress(archive, 1))


def make_device_tree(output, kernel, machine):
    """The kernel's tree with the changes of the machine."""
    shutil.copy(next((kernel / "usr" / "lib").glob("linux-image-*")) / machine.device_tree, output)
    for options, words in machine.changes:
        subprocess.run(["fdtput", *options.split(), output, *words.split()], check=True)

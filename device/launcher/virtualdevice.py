"""Starts and ends a virtual device: broker, simulation, web service and web server in a private folder.

    with VirtualDevice("build/release", nginx=True) as device:
        requests go to device.fcgi_port (FastCGI) or device.http_port (HTTP)

Several devices run side by side: each has its own folder, its own segment and semaphore names and its own ports. Only
the standard library is used. Importing programs have this folder on their path.
"""

import os
import shlex
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

from desk import dies_with_launcher, free_port, is_listening, render_lighttpd, render_nginx
from emulation import emulator
from framebuffer import make_framebuffer
from hardwareinfo import FACTORY_VALUES, make_devices

REPOSITORY = Path(__file__).resolve().parents[2]
PACKAGING = REPOSITORY / "packaging"
SHARED_MEMORY = Path("/dev/shm")
FOLDERS = ("dev", "tmp", "update", "var/volatile", "var/LDA", "var/FOR", "var/SETUPS", "log")
READY_SECONDS = 60
END_SECONDS = 30


class DeviceError(RuntimeError):
    """A part of the device did not start. The text names it and ends with its last output."""


class VirtualDevice:  # pylint: disable=too-many-public-methods  # each part can be started
    """One virtual device.

    build        build folder, for example "build/release"
    simulation   arguments of the simulation, for example ["--changes", "50", "--interval", "100"]; None: no
                 simulation
    recording    arguments of a replay beside the simulation, which is still then, for example ["FILE", "--speed", "10"]
    screen       width and height of the display in pixels
    display      arguments of the process that draws the display, for example ["--interval", "100"]; None: no such
                 process, and the display is black
    service      whether the web service runs; start_service() starts it later
    live         whether the process for version 2 of the API runs
    nginx        whether nginx runs in front of the service
    lighttpd     whether lighttpd runs in front of it
    client       folder of the browser console's pages; None: the build's
    http_port    the web server's port; None: a free one
    http_address the web server's address
    site         functions by the name of a file of the web server's site, for example "limits.conf": each takes the
                 file's text and returns the one to use
    fcgi_port    the service's port instead of 9000; None: a free one
    environment  further environment variables for the device's processes
    """

    def __init__(self, build, *, simulation=("--still",), recording=None, screen=(800, 480), display=None, service=True,
                 live=False, nginx=False, lighttpd=False, client=None, http_port=None, http_address="127.0.0.1",
                 site=None, fcgi_port=None, environment=None):
        self.build = Path(build).resolve()
        self._emulator = emulator(self.build)
        self._library = self.build / "lib" / "libvirtualdevice.so"
        self.fcgi_port = fcgi_port or free_port()
        self.http_port = http_port or free_port()
        self.live_port = free_port() if live else None
        self.http_address = http_address
        self.client = Path(client or self.build / "client").resolve()
        self.exit_codes = {}
        self.root = None
        self.name = None
        self._simulation = simulation if recording is None else ("--still",)
        self._recording = recording
        self._screen = screen
        self._display = display
        self._with_service = service
        self._with_nginx = nginx
        self._with_lighttpd = lighttpd
        self._site_changes = site
        self._environment = dict(environment or {})
        self._processes = {}

    # For programs that use the device

    @property
    def pids(self):
        """Process ids by name: "broker", "simulation", "replay", "display", "service", "live", "nginx", "lighttpd"."""
        return {name: process.pid for name, process in self._processes.items()}

    @property
    def url(self):
        return f"http://{self.http_address}:{self.http_port}"

    def segment(self, memory):
        """The file behind a segment, for example segment("MemApp"): four bytes of size, then the data."""
        return SHARED_MEMORY / f"{self.name}{memory}"

    def path(self, device_path):
        """The file behind a path of the device, for example path("/update/host.swu")."""
        return self.root / device_path.lstrip("/")

    def log(self):
        """The kernel log so far."""
        return self.path("/dev/kmsg").read_text(errors="replace")

    def output(self, process):
        """What a process wrote to its standard output and error so far."""
        file = self.root / "log" / f"{process}.txt"
        return file.read_text(errors="replace") if file.exists() else ""

    def hwinfo(self, *arguments):
        """What the hwinfo tool prints about this device's card and register, for example hwinfo("set", "k=7").

        Raises DeviceError with the tool's error output if it fails.
        """
        result = subprocess.run(self.command("hwinfo", *arguments), env=self.environment(), stdin=subprocess.DEVNULL,
                                capture_output=True, text=True, check=False)
        if result.returncode != 0:
            raise DeviceError(result.stderr)
        return result.stdout

    def command(self, program, *arguments):
        """The command that runs one of the build's programs in environment(), for example command("hwinfo", "print").

        Raises DeviceError if the build does not have the program.
        """
        file = self.build / "bin" / program
        for needed in (file, self._library):
            if not needed.exists():
                raise DeviceError(f"{needed} is missing; the build target desk makes it")
        preload = ["--preload", self._library] if self._emulator else []
        return [str(word) for word in [*self._emulator, *preload, file, *arguments]]

    def environment(self):
        """The environment variables that make a program a process of this device."""
        return {
            **os.environ,
            "PATH": f"{REPOSITORY / 'device' / 'bin'}:{os.environ.get('PATH', os.defpath)}",
            **self._identity(),
            **self._environment,
        }

    def shell_command(self, program):
        """Makes a script in the device's folder that runs one of the build's programs on this device; returns its
        path."""
        script = self.root / program
        settings = "".join(f"export {name}={shlex.quote(value)}\n" for name, value in self._identity().items())
        script.write_text(f'#!/bin/sh\n{settings}exec {shlex.join(self.command(program))} "$@"\n')
        script.chmod(0o755)
        return script

    def _identity(self):
        preload = {} if self._emulator else {"LD_PRELOAD": str(self._library)}
        return {
            **preload,
            "VIRTUAL_DEVICE_ROOT": str(self.root),
            "VIRTUAL_DEVICE_NAME": self.name,
            "VIRTUAL_DEVICE_PORT": str(self.fcgi_port),
        }

    # Start and end

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.stop()

    def start(self):
        """Starts all parts and returns when each is ready. If one fails, ends the others and raises DeviceError."""
        try:
            self._make_folders()
            self.hwinfo("create", *FACTORY_VALUES)
            self.start_broker()
            if self._simulation is not None:
                self.start_simulation(*self._simulation)
            if self._recording is not None:
                self._start_replay(*self._recording)
            if self._display is not None:
                self.start_display(*self._display)
            if self._with_service:
                self.start_service()
            if self.live_port:
                self.start_live()
            if self._with_nginx:
                self.start_nginx()
            if self._with_lighttpd:
                self.start_lighttpd()
        except BaseException:
            self.stop()
            raise
        return self

    def stop(self):
        """Ends all parts in reverse order and removes folder, segments and semaphores. Returns the exit codes by name."""
        for name in reversed(list(self._processes)):
            self.end(name)
        if self.root is not None:
            shutil.rmtree(self.root, ignore_errors=True)
            for file in [*SHARED_MEMORY.glob(f"{self.name}*"), *SHARED_MEMORY.glob(f"sem.{self.name}*")]:
                file.unlink(missing_ok=True)
        return self.exit_codes

    def end(self, name, number=signal.SIGTERM):
        """Ends one part with a signal and returns its exit code, or minus the number of the signal that ended it."""
        process = self._processes.pop(name)
        if process.poll() is None:
            process.send_signal(number)
        try:
            process.wait(END_SECONDS)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        self.exit_codes[name] = process.returncode
        return process.returncode

    def ended(self):
        """The names of parts that ended without being stopped."""
        return [name for name, process in self._processes.items() if process.poll() is not None]

    def start_simulation(self, *arguments):
        self._run("simulation", self.command("device-simulation", *arguments),
                  lambda: "ready\n" in self.output("simulation"))

    def start_display(self, *arguments):
        self._run("display", self.command("device-display", *arguments),
                  lambda: "ready\n" in self.output("display"))

    def start_service(self):
        self._run("service", self.command("webservice"), lambda: is_listening(self.fcgi_port))

    def start_live(self):
        self._run("live", self.command("webservice-live", "--port", self.live_port),
                  lambda: is_listening(self.live_port))

    def start_nginx(self):
        folder = self.root / "nginx"
        config = render_nginx(PACKAGING / "nginx", folder, self.http_address, self.http_port, self.fcgi_port,
                              self.client, self._site_changes, self.live_port)
        self._run_web_server("nginx", ["-p", folder, "-c", config, "-e", folder / "error.log"])

    def start_lighttpd(self):
        config = render_lighttpd(PACKAGING / "lighttpd", self.root / "lighttpd", self.http_address, self.http_port,
                                 self.fcgi_port, self.client, self._site_changes, self.live_port)
        self._run_web_server("lighttpd", ["-D", "-f", config])

    def start_broker(self):
        semaphore = SHARED_MEMORY / f"sem.{self.name}message-broker-ready"
        self._run("broker", self.command("message-broker"), semaphore.exists)

    def _start_replay(self, *arguments):
        self._run("replay", self.command("variables", "replay", "--loop", *arguments),
                  lambda: "Playing" in self.output("replay"))

    def _make_folders(self):
        # Short, and not where TMPDIR says: the path of a Unix socket has 107 characters.
        self.root = Path(tempfile.mkdtemp(prefix="vd-", dir="/tmp"))
        self.name = self.root.name + "-"
        for folder in FOLDERS:
            self.path(folder).mkdir(parents=True)
        self.path("/dev/kmsg").touch()
        make_framebuffer(self.path("/dev"), *self._screen)
        make_devices(self.path("/dev"))

    def _run(self, name, command, is_ready, environment=None):
        """Starts a process and waits until it is ready."""
        # In a session of its own, a part gets no Ctrl-C from the terminal: the launcher ends the parts in order.
        with open(self.root / "log" / f"{name}.txt", "wb") as output:
            # Safe beside threads, because dies_with_launcher only calls prctl.
            self._processes[name] = subprocess.Popen(  # pylint: disable=subprocess-popen-preexec-fn
                [str(word) for word in command], env=environment or self.environment(), stdin=subprocess.DEVNULL,
                stdout=output, stderr=subprocess.STDOUT, preexec_fn=dies_with_launcher, start_new_session=True)
        self._wait_for(name, is_ready)

    def _run_web_server(self, name, arguments):
        # Debian keeps web servers in a folder that is not on every user's path.
        program = shutil.which(name, path=f"{os.environ.get('PATH', '')}:/usr/sbin")
        if not program:
            raise DeviceError(f"{name} is not installed")
        self._run(name, [program, *arguments], lambda: is_listening(self.http_port), environment=dict(os.environ))

    def _wait_for(self, name, is_ready):
        process = self._processes[name]
        end = time.monotonic() + READY_SECONDS
        while not is_ready():
            if process.poll() is not None:
                raise DeviceError(f"{name} ended with {process.returncode}: {self._last_words(name)}")
            if time.monotonic() > end:
                raise DeviceError(f"{name} is not ready after {READY_SECONDS} s: {self._last_words(name)}")
            time.sleep(0.005)

    def _last_words(self, name):
        return (self.output(name) + self.log())[-2000:].strip() or "no output"

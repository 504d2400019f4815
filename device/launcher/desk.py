"""What the launcher needs from the machine that it runs on: ports, process ties, the web server's files."""

import ctypes
import os
import random
import shutil
import signal
import socket
from pathlib import Path

PR_SET_PDEATHSIG = 1
LISTENING = "0A"
# Below the range from which systems take the ports of outgoing connections, so that none of them takes a port between
# choosing and listening.
PORTS = range(20000, 32000)
LIBC = ctypes.CDLL(None)


def dies_with_launcher():
    """Run in a child between fork and exec: the kernel ends the child when the launcher has gone."""
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)


def is_free(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("", port))
        except OSError:
            return False
        return not is_listening(port)


def free_port(besides=None):
    """A port on which nobody listens."""
    candidates = (port for port in random.sample(PORTS, 1000) if port != besides and is_free(port))
    return next(candidates)


def next_free_port(first):
    """`first` or the next one above it on which nobody listens."""
    return next(port for port in range(first, 65536) if is_free(port))


def is_listening(port):
    """Whether a process listens on the port. It asks the kernel: a trial connection would be a visible client."""
    for table in ("/proc/net/tcp", "/proc/net/tcp6"):
        if not os.path.exists(table):
            continue
        for line in Path(table).read_text().splitlines()[1:]:
            _, local, _, state = line.split()[:4]
            if state == LISTENING and int(local.rsplit(":", 1)[1], 16) == port:
                return True
    return False


def render_nginx(source, folder, address, port, fcgi_port):
    """Fills `folder` with a web-server configuration made of the reference one, and returns its main file.

    What differs from the device is where it listens, where the service is, and the frame around the site.
    """
    site = folder / "webservice"
    site.mkdir(parents=True)
    for file in source.glob("*.conf"):
        shutil.copy(file, site)
    (site / "listen.conf").write_text(f"listen {address}:{port} so_keepalive=60s:10s:6;\n")
    (site / "upstream.conf").write_text(f"server 127.0.0.1:{fcgi_port};\n")
    # A worker of another user could not enter the private folder.
    user = "user root;" if os.geteuid() == 0 else ""
    config = folder / "nginx.conf"
    frame = (source / "nginx.conf.in").read_text()
    config.write_text(frame.replace("@USER@", user).replace("@FOLDER@", str(folder)))
    return config

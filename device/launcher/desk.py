"""Free ports, ending children with their parent, and the configuration of the web servers."""

import ctypes
import os
import random
import shutil
import signal
import socket
from pathlib import Path

PR_SET_PDEATHSIG = 1
# States of TCP sockets in hexadecimal, from include/net/tcp_states.h of the kernel.
HANDSHAKE = ("02", "03")
LISTENING = "0A"
# Below the range of ephemeral ports, so that no outgoing connection takes a port before the server listens on it.
PORTS = range(20000, 32000)
CLAIMS = []
LIBC = ctypes.CDLL(None)


def dies_with_launcher():
    """Run in a child between fork and exec: the kernel ends the child when the launcher ends."""
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)


def is_free(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("", port))
        except OSError:
            return False
        return not is_listening(port)


def free_port():
    """Claims a random free port."""
    return next(port for port in random.sample(PORTS, 1000) if is_free(port) and claim(port))


def claim(port):
    """Keeps other launchers from choosing the port as long as this process runs; returns False if another has it.

    The claim is a Unix socket with an abstract name: it leaves no file and belongs to a network namespace, as ports do.
    """
    claimed = socket.socket(socket.AF_UNIX)
    try:
        claimed.bind(f"\0virtual-device-port-{port}")
    except OSError:
        return False
    CLAIMS.append(claimed)
    return True


def next_free_port(first):
    """Claims `first` or the next port above it that is free."""
    return next(port for port in range(first, 65536) if is_free(port) and claim(port))


def is_listening(port):
    """Whether a process listens on the port.

    Asks the kernel, because a server would take a trial connection for a client.
    """
    return any(state == LISTENING and local == port for local, _, state, _ in tcp_sockets())


def has_pending_connections(port):
    """Whether the server on the port has not accepted all connections yet.

    A connection that finds the queue of the server full starts again a second later, so later requests overtake it.
    """
    return any(state in HANDSHAKE and port in (local, remote) or state == LISTENING and local == port and received > 0
               for local, remote, state, received in tcp_sockets())


def tcp_sockets():
    """Local port, remote port, state and length of the receive queue (of a listener: connections not accepted yet)."""
    for table in filter(os.path.exists, ("/proc/net/tcp", "/proc/net/tcp6")):
        for line in Path(table).read_text().splitlines()[1:]:
            _, local, remote, state, queues = line.split()[:5]
            yield *(int(end.rsplit(":", 1)[1], 16) for end in (local, remote)), state, int(queues.split(":")[1], 16)


def render_nginx(source, folder, address, port, fcgi_port, client="/nonexistent", changes=None, live_port=None):
    """Copies the reference configuration into `folder` and returns its main file.

    Addresses, folders and the main file differ from the device's. `changes` maps the name of a file, for example
    "limits.conf", to a function that takes the reference file's text and returns the text to use. `live_port` is that of
    the process for version 2 of the API; None: there is none.
    """
    # A worker that runs as another user cannot enter the private folder.
    user = "user root;" if os.geteuid() == 0 else ""
    return render(source, folder, "nginx.conf", {"@USER@": user, "@FOLDER@": str(folder)}, changes or {}, {
        "listen.conf": f"listen {address}:{port} so_keepalive=60s:10s:6;\n",
        "hosts.conf": f"{address} 0;\n",
        "upstream.conf": f"server 127.0.0.1:{fcgi_port} max_fails=0;\n",
        "client.conf": f'root "{client}";\n',
        "log.conf": f"access_log {folder}/changes.log changes if=$upstream_addr;\n",
        **({"live/upstream.conf": f"server 127.0.0.1:{live_port} max_fails=0;\n",
            "enabled/live.http.conf": "include webservice/live/http.conf;\n",
            "enabled/live.server.conf": "include webservice/live/server.conf;\n"} if live_port else {}),
    })


def render_lighttpd(source, folder, address, port, fcgi_port, client, changes=None, live_port=None):
    """The same for lighttpd."""
    config = render(source, folder, "lighttpd.conf", {"@FOLDER@": str(folder)}, changes or {}, {
        "listen.conf": f'server.bind = "{address}"\nserver.port = {port}\n',
        "hosts.conf": f'var.hosts = "{address}"\n',
        "upstream.conf": f'var.service_host = "127.0.0.1"\nvar.service_port = {fcgi_port}\n',
        "folders.conf": f'var.client = "{client}"\nvar.site = "{folder / "webservice"}"\n'
                        f'var.changes = "{folder / "changes.log"}"\n',
        "live/upstream.conf": f'var.live_host = "127.0.0.1"\nvar.live_port = {live_port or 9001}\n',
    })
    if live_port:
        site = folder / "webservice" / "webservice.conf"
        site.write_text(site.read_text() + 'include "webservice/live/live.conf"\n')
    (folder / "body").mkdir(exist_ok=True)
    return config


def render(source, folder, main, names, changes, files):
    """Copies the reference configuration, replaces `names` in its main file, and writes `files` over its own."""
    site = folder / "webservice"
    shutil.copytree(source, site, ignore=shutil.ignore_patterns("*.in"), dirs_exist_ok=True)
    files = {**files, **{name: change((source / name).read_text()) for name, change in changes.items()}}
    for name, text in files.items():
        (site / name).parent.mkdir(exist_ok=True)
        (site / name).write_text(text)
    frame = (source / f"{main}.in").read_text()
    for name, value in names.items():
        frame = frame.replace(name, value)
    config = folder / main
    config.write_text(frame)
    return config

"""The virtual device from the command line: python3 device/launcher --build build/release"""

import argparse
import signal
import sys
import time
from pathlib import Path

from desk import next_free_port
from virtualdevice import DeviceError, VirtualDevice

LIVE = """
Version 2 of the API

  names and values       curl {url}/api/v2/values
  changes as they happen curl -N '{url}/api/v2/events?vars=MemMotors.*'
"""
HELP = """
The controller in the browser: {url}/

  the whole tree         curl {url}/api/v1/all.cgi
  wait for a change      curl {url}/api/v1/update.cgi
  see the display        {url}/api/v1/screen.cgi
  set a variable         curl -d '{{"MemPersistent": {{"DisplayBrightness": 7}}}}' {url}/api/v1/set.cgi
  read, set and watch    {variables} --help
{live}
Kernel log of the device: {log}
Ctrl-C ends everything.
"""


def size(text):
    """Width and height of "800x480"."""
    width, height = (int(number) for number in text.split("x"))
    return width, height


def arguments():
    parser = argparse.ArgumentParser(prog="device/launcher", description="Runs a virtual device until Ctrl-C.")
    parser.add_argument("--build", required=True, help="build folder, for example build/release")
    parser.add_argument("--web-server", choices=("nginx", "lighttpd"), default="nginx",
                        help="web server in front of the service (%(default)s)")
    parser.add_argument("--port", type=int, default=8080, help="port of the web server, or the next free (%(default)s)")
    parser.add_argument("--address", default="127.0.0.1",
                        help="address of the web server; 0.0.0.0 admits other machines (%(default)s)")
    parser.add_argument("--screen", type=size, default="800x480", help="size of the display in pixels (%(default)s)")
    parser.add_argument("simulation", nargs="*",
                        help="after --: arguments of the simulation, or --replay FILE and further arguments of "
                        "\"variables replay\" to play a recording instead, again and again")
    return parser.parse_args()


def has_live(build):
    """Whether the build, or the installed package, has the process for version 2 of the API."""
    return (Path(build) / "bin" / "webservice-live").exists()


def end(*_):
    """Ends the program. A second Ctrl-C does not interrupt the clean-up."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_IGN)
    sys.exit(0)


def main():
    options = arguments()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)
    port = next_free_port(options.port)
    recording = options.simulation[1:] if options.simulation[:1] == ["--replay"] else None
    device = VirtualDevice(options.build, simulation=options.simulation, recording=recording, screen=options.screen,
                           display=(), http_port=port, http_address=options.address, live=has_live(options.build),
                           **{options.web_server: True})
    try:
        with device:
            print(HELP.format(url=device.url, log=device.path("/dev/kmsg"),
                              live=LIVE.format(url=device.url) if device.live_port else "",
                              variables=device.shell_command("variables")), flush=True)
            while not device.ended():
                time.sleep(0.5)
            name = device.ended()[0]
            raise DeviceError(f"{name} ended unexpectedly:\n{device.output(name)}\n{device.log()[-2000:]}")
    except DeviceError as error:
        sys.exit(str(error))


main()

#!/bin/sh
# Starts a virtual device with the installed service and a web server. Ctrl-C ends them.
folder=/usr/lib/webservice-virtualdevice
exec /usr/bin/python3 -B "$folder/device/launcher" --build "$folder" "$@"

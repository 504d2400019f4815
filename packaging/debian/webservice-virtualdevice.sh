#!/bin/sh
# Starts a virtual device with the installed service and a web server in front of it, until Ctrl-C.
folder=/usr/lib/webservice-virtualdevice
exec /usr/bin/python3 -B "$folder/device/launcher" --build "$folder" "$@"

"""Requests of the board's clients."""

import json

FORM = {"Content-Type": "multipart/form-data; boundary=x"}


def set_value(board, memory, variable, value):
    board.ask("/api/v1/set.cgi", json.dumps({memory: {variable: value}}).encode())


def upload(board, device, content):
    """The answer to a firmware upload as the app sends it."""
    head = "--x\r\nContent-Disposition: form-data; name="
    body = f'{head}"deviceid"\r\n\r\n{device}\r\n{head}"file"; filename="a"\r\n\r\n'.encode() + content + b"\r\n--x--\r\n"
    return json.loads(board.ask("/qorapp/v1/device/update", body, headers=FORM))

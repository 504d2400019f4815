"""An OpenAPI description that the build has generated, and answers compared with it."""

import json
import re
from pathlib import Path

import jsonschema

from systemdevice import BUILD


# The headers that a client can use. Others are the web server's, or for caches and browsers.
HEADERS = {"Allow", "Content-Location", "ETag", "Event-Sequence", "Retry-After"}


class Description:
    """operations   (method, path) of each"""

    def __init__(self, name):
        document = json.loads(Path(BUILD, "generated/docs", name).read_text())
        self._paths, self._components = document["paths"], document["components"]
        self.operations = {(method.upper(), path) for path, item in self._paths.items() for method in item
                           if method != "parameters"}

    def validator(self, schema):
        return jsonschema.Draft202012Validator({**schema, "components": self._components})

    def ask(self, device, method, template, path, body=None, **headers):
        """Status and body of the answer, and the body's validator.

        The template has to be the description's first that fits the path.
        """
        fitting = [known for known in sorted(self._paths, key=lambda known: known.count("{"))
                   if re.fullmatch(re.sub(r"\\{\w+\\}", "[^/]+", re.escape(known)), path.partition("?")[0])]
        assert fitting[0] == template
        status, received, answer = device.http(path, body, method, **headers)
        responses = self._paths[template][method.lower()]["responses"]
        described = responses.get(str(status), responses["default"])
        if "$ref" in described:
            described = self._components["responses"][described["$ref"].rpartition("/")[2]]
        assert HEADERS.intersection(received.keys()) <= described.get("headers", {}).keys()
        kind = received.get("Content-Type", "").partition(";")[0]
        return status, answer, self.validator(described["content"][kind]["schema"] if kind else {"const": ""})

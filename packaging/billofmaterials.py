#!/usr/bin/env python3
"""Prints a package's bill of materials, a CycloneDX 1.5 document in JSON.

    billofmaterials.py --package NAME --version VERSION --architecture NAME --root FOLDER --build FOLDER [--libraries A:B]

`--root` has the package's files, and `--build` is the build folder that they come from. `--libraries` are the folders of
another architecture's libraries. The components of a package are

- the shared libraries that its programs load, and those that these load in turn;
- the packages whose headers its programs were compiled with, because code of C++ headers and of the compiler's static
  libraries is in the programs;
- what the console has from npm, according to its lock file.

Versions and suppliers are those of the Debian packages on the build machine, or in the folder of script/sysroot. The time
is SOURCE_DATE_EPOCH, and the serial number is made from the content.
"""

import argparse
import base64
import datetime
import functools
import json
import os
import re
import subprocess
import uuid
from dataclasses import dataclass, field
from pathlib import Path
from urllib.parse import quote, unquote

SOURCE = Path(__file__).resolve().parents[1]
SYSROOT = SOURCE / "build/sysroot-armhf"
SYSROOT_TRIPLET = "arm-linux-gnueabihf"
LOCK_FILE = SOURCE / "apps/web/client/package-lock.json"
LOADED, COMPILED, BUNDLED = "loads", "is compiled with", "contains"


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


@functools.cache
def native_triplet():
    return output("dpkg-architecture", "-q", "DEB_BUILD_MULTIARCH").strip()


@dataclass
class Component:
    """A part of the package; `uses` has the references of the components that it needs."""

    name: str
    version: str
    reference: str  # package URL
    supplier: str = ""
    details: dict = field(default_factory=dict)
    relations: set = field(default_factory=set)
    uses: set = field(default_factory=set)

    def document(self):
        supplier = {"supplier": {"name": self.supplier}} if self.supplier else {}
        properties = [{"name": "webservice:relation", "value": relation} for relation in sorted(self.relations)]
        return {"type": "library", "bom-ref": self.reference, **supplier, "name": self.name, "version": self.version,
                **self.details, "purl": self.reference, "properties": properties}


def package_url(kind, name, version, architecture):
    return f"pkg:{kind}/{name}@{quote(version, safe='')}" + (f"?arch={architecture}" if architecture else "")


class Packages:
    """The Debian packages of this machine and of the sysroot, by the files in them."""

    def __init__(self):
        path = SYSROOT / "packages"
        lines = path.read_text(encoding="utf-8").splitlines()[1:] if path.exists() else []
        # NAME_VERSION_ARCHITECTURE.deb, as apt names the files
        rows = (unquote(line).removesuffix(".deb").split("_") for line in lines)
        self._sysroot = {name: (version, architecture) for name, version, architecture in rows}

    def owners(self, files):
        """The packages of the files as components. The sysroot's packages are installed on this machine, too."""
        own = [str(file) for file in files if not file.is_relative_to(SYSROOT)]
        other = ["/" + str(file.relative_to(SYSROOT)).replace(SYSROOT_TRIPLET, native_triplet())
                 for file in files if file.is_relative_to(SYSROOT)]
        return [self._own(name) for name in self._names(own)] + [self._other(name) for name in self._names(other)]

    def _names(self, files):
        # Debian's file lists have /lib or /usr/lib, which are the same folder.
        patterns = [re.sub(r"^(/usr)?/lib/", "*/lib/", file) for file in files]
        lines = output("dpkg", "-S", *patterns).splitlines() if patterns else []
        return sorted({line.split(":")[0] for line in lines if not line.startswith("diversion ")})

    def _own(self, name):
        fields = "${Version}\t${Architecture}\t${Maintainer}\n"
        version, architecture, maintainer = output("dpkg-query", "-W", "-f", fields, name).splitlines()[0].split("\t")
        return Component(name, version, package_url("deb/debian", name, version, architecture), maintainer)

    def _other(self, name):
        component = self._own(name)
        version, architecture = self._sysroot[name]
        return Component(name, version, package_url("deb/debian", name, version, architecture), component.supplier)


class Bill:
    """Collects the components of one package."""

    def __init__(self, options):
        self._options = options
        self._packages = Packages()
        self._components = {}
        self._programs = [path for path in sorted(Path(options.root).rglob("*"))
                          if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF"]
        self._folders = [Path(folder) for folder in filter(None, options.libraries.split(":"))]
        self._folders = self._folders or [Path("/usr/lib") / native_triplet()]

    def document(self):
        loaded = {reference for program in self._programs for reference in self._add_loaded(program)}
        compiled = {self._add(component, COMPILED) for component in self._packages.owners(self._headers())}
        bundled = {self._add(component, BUNDLED) for component in self._from_npm()}
        options = self._options
        own = package_url("deb", options.package, options.version, options.architecture)
        parts = sorted(self._components.values(), key=lambda component: component.reference)
        edges = [(own, loaded | compiled | bundled), *((part.reference, part.uses) for part in parts)]
        time = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
        content = {
            "metadata": {
                "timestamp": time.strftime("%Y-%m-%dT%H:%M:%SZ"),
                "component": {"type": "application", "bom-ref": own, "name": options.package,
                              "version": options.version, "purl": own},
            },
            "components": [part.document() for part in parts],
            "dependencies": [{"ref": reference, "dependsOn": sorted(uses)} for reference, uses in edges],
        }
        serial = uuid.uuid5(uuid.NAMESPACE_URL, json.dumps(content))
        return {"bomFormat": "CycloneDX", "specVersion": "1.5", "serialNumber": f"urn:uuid:{serial}", "version": 1,
                **content}

    def _add(self, component, relation):
        component = self._components.setdefault(component.reference, component)
        component.relations.add(relation)
        return component.reference

    def _add_loaded(self, file):
        """Adds the libraries that a program or library loads, and returns their references."""
        references = set()
        for name in re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-d", file)):
            library = next(folder / name for folder in self._folders if (folder / name).exists())
            component, = self._packages.owners([library])
            is_new = component.reference not in self._components
            reference = self._add(component, LOADED)
            references.add(reference)
            if is_new:
                self._components[reference].uses |= self._add_loaded(library) - {reference}
        return references

    def _headers(self):
        """The headers outside the repository that the package's programs were compiled with."""
        ninja = ("ninja", "-C", self._options.build, "-t")
        targets = [f"{'lib' if path.suffix == '.so' else 'bin'}/{path.name}" for path in self._programs]
        inputs = set(output(*ninja, "inputs", *targets).splitlines()) if targets else set()
        build, headers, is_input = Path(self._options.build), set(), False
        for line in output(*ninja, "deps").splitlines():
            if not line.startswith(" "):
                is_input = line.split(":")[0] in inputs
            elif is_input:
                headers.add(Path(os.path.normpath(build / line.strip())))
        return sorted(path for path in headers if path.is_relative_to(SYSROOT) or not path.is_relative_to(SOURCE))

    def _from_npm(self):
        if not list(Path(self._options.root).glob("usr/share/webservice/client/vendor/*.js")):
            return
        packages = json.loads(LOCK_FILE.read_text(encoding="utf-8"))["packages"]
        for path, package in sorted(packages.items()):
            if path:
                name, version = path.rpartition("node_modules/")[2], package["version"]
                digest = base64.b64decode(package["integrity"].removeprefix("sha512-")).hex()
                details = {"hashes": [{"alg": "SHA-512", "content": digest}],
                           "licenses": [{"license": {"id": package["license"]}}]}
                yield Component(name, version, package_url("npm", name, version, ""), details=details)


def arguments():
    parser = argparse.ArgumentParser(description="Prints a package's bill of materials.")
    for name in ("package", "version", "architecture", "root", "build"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--libraries", default="")
    return parser.parse_args()


if __name__ == "__main__":
    print(json.dumps(Bill(arguments()).document(), indent=2))

"""Two virtual devices side by side: one of this machine's own programs, one of those for the controller."""

import os
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "system"))

from catalogue import Catalogue
from systemdevice import BUILD, SystemDevice

SCREEN = (480, 272)


@pytest.fixture(scope="session")
def catalogue():
    return Catalogue()


@pytest.fixture(scope="module")
def devices():
    with SystemDevice(build=os.environ["NATIVE_TEST_BUILD"], screen=SCREEN) as native, \
            SystemDevice(build=BUILD, screen=SCREEN) as other:
        yield native, other

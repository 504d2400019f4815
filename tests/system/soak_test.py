"""The soak reports what it is there to find."""

import os
import re
import subprocess
import sys

import pytest

from systemdevice import BUILD
from emulation import emulator
from virtualdevice import REPOSITORY


@pytest.mark.skipif(bool(emulator(BUILD)), reason="the soak looks at native processes")
def test_soak_finds_a_lost_change_and_leaked_descriptors():
    command = [sys.executable, "-B", REPOSITORY / "bench/soak/soak.py", "--minutes", "0.02", "--build", BUILD]
    result = subprocess.run([*command, "--prove", "loss", "leak"], env={**os.environ, "CHROMIUM": "/none"},
                            capture_output=True, text=True, check=False)
    assert result.returncode == 1
    assert "- poller 19: MemGuiLocal.EditIntegerMaxValue_Local is " in result.stdout, result.stdout + result.stderr
    found = re.search(r"- rest 2: (\d+) descriptors, (\d+) at the first rest", result.stdout)
    assert found and int(found[1]) == int(found[2]) + 3, result.stdout

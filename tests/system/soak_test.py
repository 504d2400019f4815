"""The soak reports what it is there to find."""

import os
import subprocess
import sys
from pathlib import Path

from systemdevice import BUILD

PROGRAM = Path(__file__).resolve().parents[2] / "bench" / "soak" / "soak.py"


def test_soak_finds_a_lost_change_and_a_leaked_descriptor():
    command = [sys.executable, "-B", PROGRAM, "--minutes", "0.02", "--build", BUILD, "--prove", "loss", "leak"]
    result = subprocess.run(command, env={**os.environ, "CHROMIUM": "/none"}, capture_output=True, text=True, check=False)
    assert result.returncode == 1
    assert "- poller 19: MemGuiLocal.EditIntegerMaxValue_Local is " in result.stdout, result.stdout + result.stderr
    assert "30 descriptors, 27 at the first rest" in result.stdout

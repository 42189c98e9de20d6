import os
import subprocess
from pathlib import Path

import pytest

SOURCE = Path(os.environ.get("SIGFILE_SOURCE_DIR", Path(__file__).resolve().parents[2]))
SHARED = SOURCE.parent / "shared"


@pytest.fixture(scope="session")
def tool():
    path = os.environ.get("SIGFILE_TOOL")
    if not path:
        pytest.skip("SIGFILE_TOOL is not set (run through ctest)")
    return path


@pytest.fixture(scope="session")
def demo_night(tmp_path_factory, tool):
    """A 3-minute demo night, native and exported as EDF+."""
    folder = tmp_path_factory.mktemp("demo")
    sig = folder / "night.sig"
    subprocess.run([tool, "demo", str(sig), "--minutes", "3"], check=True, capture_output=True)
    edf = folder / "night.edf"
    subprocess.run([tool, "export", str(sig), str(edf)], check=True, capture_output=True)
    return sig, edf


def realworld_edf(names):
    folder = SHARED / "realworld-edf"
    return [folder / n for n in names if (folder / n).exists()]

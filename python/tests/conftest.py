import json
import os
import subprocess

import pytest

SOURCE = os.environ.get("ORVEL_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))


def path(*parts):
    return os.path.join(SOURCE, *parts)


def tool(*args):
    """The orvel command's JSON answer: the C library's own results."""
    out = subprocess.run([os.environ["ORVEL_TOOL"], *args, "--json"], capture_output=True, check=True, text=True)
    return json.loads(out.stdout)


@pytest.fixture
def sprinkler():
    import orvel

    d = orvel.load(path("examples", "sprinkler.net"))
    d.compile()
    return d

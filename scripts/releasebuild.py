"""What the benchmarks share: the release build, and commands that speak only when they fail."""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "release"


def quietly(command, **options):
    """The output of a command; ends the program with the command and all of it when it fails."""
    result = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    if result.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\n{result.stdout}{result.stderr}")
    return result.stdout


def build(*targets):
    (ROOT / "build").mkdir(exist_ok=True)
    quietly(["cmake", "--preset", "release"], cwd=ROOT)
    quietly(["cmake", "--build", "--preset", "release", "--target", *targets], cwd=ROOT)

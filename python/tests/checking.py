"""Has mypy check the package and programs strictly; prints what it says of each, as JSON: exit code and text."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).parent
PACKAGE = HERE.parent / "vxcam"
EXAMPLES = HERE.parent / "examples"

# Lines 3, 4, 6, 7 and 9 are wrong.
WRONG = """import vxcam
camera = vxcam.Camera('sim')
camera.gian = 2
camera.exposure = b'x'
frame = camera.grab()
frame.sum = 3
text: str = camera.gain
record = camera.record('a.h5', seconds=60)
size: float = frame.measures.hfd
"""


def main() -> None:
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "wrong.py").write_text(WRONG)
        checked = {"programs": [str(HERE / "user_program.py"), *map(str, sorted(EXAMPLES.glob("*.py")))],
                   "package": ["-p", "vxcam"], "wrong": ["wrong.py"]}
        environment = dict(os.environ, MYPYPATH=str(PACKAGE.parent))
        told = {}
        for name, what in checked.items():
            done = subprocess.run([sys.executable, "-m", "mypy", "--strict", "--cache-dir", "cache", *what], cwd=folder,
                                  env=environment, capture_output=True, text=True)
            told[name] = (done.returncode, done.stdout + done.stderr)
    print(json.dumps(told))


if __name__ == "__main__":
    main()

"""The package's types hold for examples and tests, and its stubs say what the extension has."""
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import support
import velto

try:
    import mypy  # noqa: F401
except ImportError as missing:
    print(f"skipped: {missing}")
    sys.exit(77)

PACKAGE = Path(velto.__file__).parent


class Types(unittest.TestCase):
    def check(self, *arguments):
        with tempfile.TemporaryDirectory() as folder:
            environment = {**os.environ, "MYPYPATH": str(PACKAGE.parent), "MYPY_CACHE_DIR": folder}
            done = subprocess.run([sys.executable, "-m", *map(str, arguments)], capture_output=True, text=True,
                                  check=False, cwd=folder, env=environment)
        self.assertEqual(0, done.returncode, done.stdout + done.stderr)

    def test_package_and_examples_are_strict(self):
        examples = sorted((support.EXAMPLES / "python").glob("*.py"))
        self.assertEqual(5, len(examples))
        self.check("mypy", "--strict", "--ignore-missing-imports", "-p", "velto")
        for example in examples:  # each is a program of its own
            self.check("mypy", "--strict", "--ignore-missing-imports", example)

    def test_wrong_uses_are_told(self):
        with tempfile.TemporaryDirectory() as folder:
            wrong = Path(folder) / "wrong.py"
            wrong.write_text("import velto\nvelto.load('a.json').bake(size='large')\nvelto.load(1)\nvelto.write('a.png')\n")
            done = subprocess.run([sys.executable, "-m", "mypy", "--strict", wrong], capture_output=True, text=True,
                                  check=False, cwd=folder, env={**os.environ, "MYPYPATH": str(PACKAGE.parent)})
        self.assertIn("Found 3 errors", done.stdout)

    def test_stubs_are_those_of_the_modules(self):
        with tempfile.NamedTemporaryFile("w", suffix=".txt") as known:
            known.write("velto._velto.Graph\n")  # its class is of a class that Python cannot name
            known.flush()
            self.check("mypy.stubtest", "velto._velto", "--allowlist", known.name)


if __name__ == "__main__":
    support.main()

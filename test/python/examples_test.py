"""Every example runs, and what it writes is a picture that shows something."""
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import support

try:
    from matplotlib import image
except ImportError as missing:
    print(f"skipped: {missing}")
    sys.exit(77)

PICTURES = {"wedge": 1, "texture_set": 2, "build_graph": 1, "plots": 1, "scatter": 1}


class Examples(unittest.TestCase):
    def test_they_write_pictures(self):
        programs = sorted((support.EXAMPLES / "python").glob("*.py"))
        self.assertEqual(sorted(PICTURES), [program.stem for program in programs])
        with tempfile.TemporaryDirectory() as folder:
            for program in programs:
                with self.subTest(program.stem):
                    files = [Path(folder) / f"{program.stem}{i}.png" for i in range(PICTURES[program.stem])]
                    done = subprocess.run([sys.executable, "-W", "error", program, *files], capture_output=True,
                                          text=True, check=False, cwd=folder)
                    self.assertEqual((0, ""), (done.returncode, done.stderr))
                    for file in files:
                        pixels = image.imread(file)
                        self.assertGreater(min(pixels.shape[:2]), 300)
                        self.assertGreater(pixels[..., :3].std(), 0.05)


if __name__ == "__main__":
    support.main()

"""The checks of the project's rules, in a small project of their own."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPTS = Path(__file__).resolve().parents[2] / "scripts"
TABLE = """| Room | Holds | May use |
| --- | --- | --- |
| `include/own/` | headers | nothing |
| `low/` | the floor | `include/own/` |
| `low/deep/` | the cellar | `low/` |
| `high/`, `roof/` | what stands on it | `low/`, `include/own/` |
| `tests/` | tests | every room |
"""


class ChecksTest(unittest.TestCase):
    def expect(self, found, script, argument, files):
        """In a folder with these files the check finds this, or nothing."""
        with self.subTest(found), tempfile.TemporaryDirectory() as folder:
            subprocess.run(["git", "init", "-q", folder], check=True)
            for name, text in files.items():
                path = Path(folder, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            done = subprocess.run([SCRIPTS / script, Path(folder, argument)], stdout=subprocess.PIPE, text=True)
            self.assertEqual((done.returncode, done.stdout.count("\n")), (1 if found else 0, 1), done.stdout)
            self.assertIn(found or ", all ", done.stdout)

    def test_rooms(self):
        headers = dict.fromkeys(("include/own/a.h", "low/b.h", "low/deep/c.h", "high/d.h", "roof/e.h"), "")
        for source, text, row, found in (
                ("low/deep/x.cc", '#include "../b.h"\n#include "c.h"\n#include <vector>\n#include "other.h"', "", ""),
                ("high/x.cc", '#include <own/a.h>\n#include "high/d.h"\n  # include "low/b.h"', "", ""),
                ("tests/x.cc", '#include "roof/e.h"\n#include "low/deep/c.h"', "", ""),
                ("low/x.cc", '\n#include "high/d.h"', "", 'low/x.cc:2: low/ may not use high/ ("high/d.h")'),
                ("low/x.cc", '#include "deep/c.h"', "", "low/x.cc:1: low/ may not use low/deep/"),
                ("low/deep/x.h", "#include <own/a.h> // y", "", "low/deep/x.h:1: low/deep/ may not use include/own/"),
                ("high/x.h", ' #  include "roof/e.h"', "", "high/x.h:1: high/ may not use roof/"),
                ("attic/x.cc", "", "", "attic/x.cc: in no room"),
                ("low/x.cc", "", "| `cellar/` | | `stairs/` |\n", "cellar/ may use stairs/, which is no room"),
                ("low/x.cc", "", "| `a/` | | `b/` |\n| `b/` | | `a/` |\n", "use each other: a/ -> b/ -> a/")):
            self.expect(found, "check-rooms", "", {**headers, "docs/architecture.md": TABLE + row, source: text})


if __name__ == "__main__":
    unittest.main()

"""The checks of the project's rules, in a small project of their own."""

import json
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
                path.write_text(text.replace("@", folder))
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

    def test_build(self):
        unity = "low/CMakeFiles/low.dir/Unity/unity_0_cxx.cxx"
        for flags, made, source, found in (
                ("-O3 -O0", "tests/CMakeFiles/t.dir/t.cc", "tests/t.cc", ""),
                ("-O3", "high/CMakeFiles/high.dir/b.cc", "low/b.cc", "low/b.cc: compiled for high and for low"),
                ("-O3 -O1", "high/CMakeFiles/high.dir/c.cc", "high/c.cc", "high/c.cc: -O1 in high")):
            commands = [{"command": f"c++ {o} -o {output}.o -c x", "file": f"@/{file}"}
                        for o, output, file in (("-O3", unity, f"build/{unity}"), (flags, made, source))]
            self.expect(found, "check-build", "build", {
                "build/compile_commands.json": json.dumps(commands), f"build/{unity}": '#include "@/low/b.cc"\n',
                "build/CMakeCache.txt": "CMAKE_HOME_DIRECTORY:INTERNAL=@\nCMAKE_BUILD_TYPE:STRING=Release\n"
                                        "CMAKE_CXX_FLAGS_RELEASE:STRING=-O3 -DNDEBUG\n"})


if __name__ == "__main__":
    unittest.main()

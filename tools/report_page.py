#!/usr/bin/env python3
"""Checks that the reports shown in a page are what the example really writes.

usage: tools/report_page.py EXAMPLE PAGE [--update]    (--update writes them into the page instead)
"""
import difflib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

example, page = sys.argv[1], pathlib.Path(sys.argv[2])
environment = {k: v for k, v in os.environ.items() if k != "FA_PLATFORM_PROFILE"}
with tempfile.TemporaryDirectory() as folder:
    printed = subprocess.run([example, folder], env=environment, check=True,
                             stdout=subprocess.PIPE, encoding="utf-8").stdout
    real = {path.name: path.read_text("utf-8") for path in pathlib.Path(folder).iterdir()}

block = re.compile(r"^```text (\S+\.txt)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
text = page.read_text("utf-8")
if "--update" in sys.argv:
    page.write_text(block.sub(lambda m: f"```text {m[1]}\n{real[m[1]]}```", text), "utf-8")
    sys.exit(0)
shown = dict(block.findall(text))
problems = [] if real["report-detail.txt"] in printed else ["the detailed report is not printed"]
for name in sorted(real.keys() | shown.keys()):
    problems += difflib.unified_diff(shown.get(name, "").splitlines(), real.get(name, "").splitlines(),
                                     f"{page.name}: {name}", f"written: {name}", lineterm="")
sys.exit("\n".join(problems) or None)

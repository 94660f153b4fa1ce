"""fa-report junit: valid against a schema, and every case and count what the reports say.

usage: junit_test.py FA-REPORT XMLLINT
"""
import pathlib
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

PROGRAM, XMLLINT = sys.argv[1:]
SCHEMA = pathlib.Path(__file__).with_name("junit.rng")
HOSTILE = b'</testcase>"\'&<b>]]>\xff\x01\xef\xbf\xbf'
HOSTILE_TEXT = '</testcase>"\'&<b>]]>' + 3 * "\ufffd"
DONE = b"duration=1250\nretrycount=0\nspec=1.00<=\nmeasure=2.50\ninsptype=auto\ntid=1\nstarttime=0\n"


def report(result, items):
    text = b"[summary]\nstarttime=20261117001329\nduration=60001\nresult=%b\npelko=uart\n" % result
    text += b"testnum=%d\nretrycount=0\n\n[information]\ns/n=%b\nmodel=M<1>\noption=\n" % (
        len(items) + 3, HOSTILE)
    text += b"mm=2\nsm=\nss=\nmt=\nbt=1\nld1=\nld2=\n\n\n\n"
    for position, lines in enumerate(items, 1):
        text += b"[%03d]\nname=%b, 0x10 01\nimqs=\n%b\n" % (position, HOSTILE, lines)
    return text


PASSED = b"result=pass\n" + DONE + b"failed=^^\n"
FAILED = b"result=fail\n" + DONE + b"failed=normal;1;2;3^" + HOSTILE + b"^\n"
WRONG = b"result=fail\ndata=error\n"
WRONG_LIST = b"result=fail\nspec=error\nlist=error\n"

# Result and items of each run; tests, failures, errors, skipped; what each case holds; the status.
CASES = [
    (b"fail", [PASSED, FAILED, WRONG, b"", WRONG_LIST, b""], "6 1 2 2",
     [None, "failure", "error", "skipped", "error", "skipped"], 1),
    (b"pass", [PASSED, b""], "2 0 0 1", [None, "skipped"], 0),
    (b"stop", [PASSED], "2 0 1 0", [None, "error"], 1),  # no item tells that the run was stopped
]

with tempfile.TemporaryDirectory() as folder:
    for result, items, counts, kinds, status in CASES:
        path = pathlib.Path(folder, "run.txt")
        path.write_bytes(report(result, items))
        run = subprocess.run([PROGRAM, "junit", path], capture_output=True, timeout=60)
        assert (run.returncode, run.stderr) == (status, b""), (result, run)
        subprocess.run([XMLLINT, "--noout", "--relaxng", SCHEMA, "-"], input=run.stdout,
                       check=True, timeout=60)
        (suite,) = ElementTree.fromstring(run.stdout)
        got = " ".join(suite.get(name) for name in ("tests", "failures", "errors", "skipped"))
        assert got == counts, (result, got)
        assert suite.get("name") == HOSTILE_TEXT + " 2026-11-17 00:13:29", suite.get("name")
        assert suite.get("timestamp") == "2026-11-17T00:13:29", suite.get("timestamp")
        assert suite.get("time") == "60.001", suite.get("time")
        properties = {one.get("name"): one.get("value") for one in suite.iter("property")}
        assert properties["mm"] == "2" and properties["result"] == result.decode(), properties
        cases = suite.findall("testcase")
        assert [case[0].tag if len(case) else None for case in cases] == kinds, run.stdout
        first = [cases[0].get(name) for name in ("classname", "name", "time")]
        assert first == ["M<1>", HOSTILE_TEXT + ", 0x10 01", "1.250"], first
        for failure in suite.iter("failure"):
            reason = failure.get("message")
            for part in ("normal;1;2;3", HOSTILE_TEXT, "2.50", "<= 1.00"):
                assert part in reason and part in failure.text, (part, reason)

    cut = pathlib.Path(folder, "cut.txt")
    cut.write_bytes(report(b"pass", [PASSED])[:-3])
    run = subprocess.run([PROGRAM, "junit", cut], capture_output=True, timeout=60)
    assert run.returncode == 3 and b"cut.txt" in run.stderr, run

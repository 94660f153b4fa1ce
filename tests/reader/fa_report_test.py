# fa-report as a person calls it: whole outputs, exit statuses, and its numbers against Python's.
#
# usage: fa_report_test.py FA-REPORT XMLLINT PAGE    (PAGE: where the SQL stands that is tried)
import csv
import io
import json
import math
import os
import pathlib
import random
import re
import statistics
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

PROGRAM, XMLLINT, PAGE = os.path.abspath(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3])
HERE = pathlib.Path(__file__).resolve().parent


def item(name, result="pass", spec=None, measure=None, codes=(0x10, 1), duration=35, retries=0,
         labels="", failed="^^", wrong=()):
    return locals()


def report(serial, start, result, items, version="1.0", model="SIM-55"):
    # The text of a raw report; texts may hold any byte as a surrogate.
    text = (f"[summary]\nstarttime={start}\nduration=420\nresult={result}\npelko=uart\n"
            f"testnum={len(items) + 3}\nretrycount=0\n\n[information]\ns/n={serial}\nmodel={model}\n"
            f"option=A,B\nmm={version}\nsm=2\nss=3\nmt=4\nbt=5\nld1=6\nld2=7\n\n\n\n")
    for position, it in enumerate(items, 1):
        text += "[%03d]\nname=%s, 0x%02x %02x\nimqs=I\n" % (position, it["name"], *it["codes"])
        text += f"result={it['result']}\n" if it["result"] else ""
        text += "".join(f"{what}=error\n" for what in it["wrong"])
        if it["result"] and not it["wrong"]:
            text += f"duration={it['duration']}\nretrycount={it['retries']}\n"
            text += f"spec={it['spec']}\nmeasure={it['measure']}\n" if it["spec"] is not None else ""
            text += f"list={it['labels']}\n" if it["labels"] else ""
            text += f"insptype=auto\ntid=1\nstarttime=0\nfailed={it['failed']}\n"
        text += "\n"
    return text


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def write(self, name, *reports):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes("".join(reports).encode("utf-8", "surrogateescape"))

    def call(self, *words, status=0, stdin=b""):
        # What the program prints; its errors are kept for the case.
        done = subprocess.run([PROGRAM, *words], cwd=self.folder, input=stdin, capture_output=True)
        self.errors = done.stderr.decode("utf-8")
        self.assertEqual(done.returncode, status, self.errors)
        return done.stdout.decode("utf-8")


def story():
    # Three units: one passes at once, one on its second run, one never.
    def run(serial, start, result, supply, standby, version):
        return report(serial, start, result, [
            item("Supply", "pass", "4.75~5.25", supply, (0x10, 1), 30),
            item("Standby", "fail" if result == "fail" else "pass", "0.50<=", standby, (0x10, 2), 40,
                 1, failed="auto;0;40;7^too warm^" if result == "fail" else "^^"),
            item("Inputs", "pass", "1", "1,1,0" if result == "stop" else "1,1,1", (0x20, 1),
                 labels="080907"),
            item("Speaker", None, codes=(0x30, 1))], version)
    return {"a/1.txt": run("UNIT-A", "20261117080000", "pass", "5.00", "0.40", "1.0"),
            "b.txt": run("UNIT-B", "20261117090000", "fail", "5.01", "0.71", "1.0") +
                     run("UNIT-B", "20261118090000", "pass", "5.02", "0.49", "1.1"),
            # Read first, but later in time.
            "a/0.txt": run("UNIT-C", "20261118100000", "stop", "4.99", "0.45", "1.1"),
            "c.txt": run("UNIT-C", "20261117100000", "fail", "4.98", "0.80", "1.0")}


class Story(Case):
    def setUp(self):
        super().setUp()
        for name, text in story().items():
            self.write(name, text)

    def test_outputs(self):
        self.write("cut.txt", story()["b.txt"][:-1])
        shown = self.call("show", "c.txt", status=1)
        summed = self.call("summary", "--by", "mm", ".", status=3)
        self.assertEqual(self.errors, "./cut.txt:132: the report is cut off: result= expected\n")
        self.assertEqual(shown + "-\n" + summed, (HERE / "story.txt").read_text("utf-8"))
        self.assertLessEqual(max(map(len, summed.splitlines())), 80)

    def test_why_items_failed(self):
        # What each limit does not allow of the values 4, 5 and 6, and all else that is told.
        fail = lambda spec, measure="4,5,6", **others: item("A", "fail", spec, measure, **others)
        told = [(fail("5"), "outside: value 1: 4, value 3: 6; limit 5\ndata: line-3"),
                (fail("5!="), "outside: value 2: 5; limit not 5"),
                (fail("5>="), "outside: value 1: 4; limit >= 5"),
                (fail("5<="), "outside: value 3: 6; limit <= 5"),
                (fail("5>"), "outside: value 1: 4, value 2: 5; limit > 5"),
                (fail("5<"), "outside: value 2: 5, value 3: 6; limit < 5"),
                (fail("5~5"), "outside: value 1: 4, value 3: 6; limit 5 to 5"),
                (fail("4,4,7", labels="080007"), "outside: value 2: 5 for 4, PC 6 for 7; limit a list"),
                (fail("1", "0" + 8 * ",0"), "outside: value 1: 0, value 2: 0, value 3: 0, value 4: 0, "
                 "value 5: 0, value 6: 0, value 7: 0, value 8: 0 and 1 more; limit 1"),
                (fail("", "\nskip=HDMI1,\nerror=PC"), "nothing measured\nin error: PC\nleft out: HDMI1, (no name)"),
                (fail(None, wrong=["data", "list"]), "its record is wrong, the data, the list of sub-items"),
                (item("Z", retries=1), "\nPassed on a retry (with how many):\n012 Z, 0x10 01: 1\n")]
        items = [one for one, _ in told]
        self.write("run", report("U", "2", "fail", items).replace("imqs=I\n", "imqs=I\ndata=line-3\n", 1))
        shown = re.sub("^ +(... A, 0x10 01\n)?", "", self.call("show", "run", status=1), flags=re.M)
        self.assertIn("Failed:\n" + "\n".join(text for _, text in told) + "\nInformation:", shown)
        self.assertIn(',8,A,16,1,fail,35,0,2,,0,5,5,list,,,4\r\n', self.call("table", "run"))
        self.assertIn('"name" : "A"', self.call("summary", "-j", "run"))  # of an item with two names

    def test_statuses(self):
        for status, calls in [
                (0, "show a/1.txt, summary ., table ., page ., --version, --help"),
                (1, "show ., show a/0.txt"),
                (2, ", sum, show, show - -, show c.txt -o ./c.txt, show a -o c.txt, show --json ., show --bad .,"
                    " table -f xml ., table -p day ., page -j ."),
                (3, "show a/1.txt none, summary none, table none, page none, junit c.txt none,"
                    " summary -o none/x ., page -o none/x .")]:
            for words in calls.split(","):
                self.call(*words.split(), status=status)
                self.assertEqual("--help tells more" in self.errors, status == 2, words)
        self.assertEqual(subprocess.call(f"{PROGRAM} summary . >/dev/full 2>&1", shell=True, cwd=self.folder), 3)

    def test_inputs(self):
        # Hidden files, pipes, links and empty folders.
        self.write(".hidden", "junk")
        (self.folder / "loop").symlink_to(self.folder)
        os.mkfifo(self.folder / "pipe")
        self.assertEqual(json.loads(self.call("summary", "-j", "."))["runs"]["all"], 5)
        for _ in range(2):
            self.call("table", "-o", "a/out", "a")
        (self.folder / "a/out").unlink()
        several = "".join(story().values()).encode()
        self.assertEqual(self.call("summary", "-", stdin=several), self.call("summary", "."))
        (self.folder / "gone").symlink_to("nowhere")
        (self.folder / "empty").mkdir()
        self.call("summary", "gone", "empty", "c.txt", status=3)
        self.assertEqual(self.errors, "empty: no file in this folder\ngone: No such file or directory\n")

    def test_partitions(self):
        # More days than files may be open; a second call replaces what the first one wrote.
        days = [report("U", f"2026{n // 28 + 1:02}{n % 28 + 1:02}000000", "pass",
                       [item("A", "pass", "1", "1")]) for n in range(110)]
        self.write("days.txt", *days, *days)
        whole = self.call("table", ".").splitlines()
        self.assertEqual({row[:9] for row in whole if row[2] in "bc"}, {"./b.txt,1", "./b.txt,2", "./c.txt,1"})
        for _ in range(2):
            self.call("table", "-p", "day", "-o", "out", ".")
        parts = {path.parent.name: path.read_text().splitlines() for path in self.folder.glob("out/*/items.csv")}
        self.assertEqual(len(parts), 112)
        lengths = {name: len(rows) for name, rows in parts.items() if len(rows) != 3}
        self.assertEqual(lengths, {"day=2026-11-17": 1 + 3 * 5, "day=2026-11-18": 1 + 2 * 5})
        self.assertEqual({rows[0] for rows in parts.values()}, {whole[0]})
        self.assertEqual(sorted(row for rows in parts.values() for row in rows[1:]), sorted(whole[1:]))

    def test_sql_of_the_page(self):
        # Each query of the page finds in the story what it says it finds.
        (self.folder / "items.csv").write_text(self.call("table", "."), newline="")
        sql = ["sqlite3", ":memory:", ".import --csv items.csv items"]
        queries = re.findall(r"^```sql .*?\n(.*?)^```", PAGE.read_text("utf-8"), re.M | re.S)
        answers = [subprocess.check_output([*sql, query], cwd=self.folder, encoding="utf-8") for query in queries]
        self.assertEqual(answers, ["Standby|2\n", "1.1|2|0.47|0.49\n1.0|3|0.637|0.8\n",
                                   "2026-11-17|UNIT-B|0.71\n2026-11-17|UNIT-C|0.80\n"])


class Page(Case):
    def data(self, *words, status=0):
        page = self.call("page", *words, status=status)
        block, = re.findall(r'<script type="application/json" id="data">(.*?)</script>', page, re.S)
        self.assertEqual(re.findall("[<>&\u2028\u2029]", block), [])
        return json.loads(block)

    def test_numbers_are_those_of_the_summary(self):
        for n in range(40):
            self.write(f"{n}", *story().values())
        self.write("cut", story()["b.txt"][:-1])
        for words, by in [((), "mm"), (("--by", "sm"), "sm")]:
            summary = json.loads(self.call("summary", "--json", "--by", by, ".", status=3))
            data = self.data(*words, ".", status=3)
            self.assertEqual({name: data[name] for name in summary}, summary)
        supply, = [value["histogram"] for value in data["values"] if value["item"] == "Supply"]
        drawn = {round(supply["from"] + n * supply["width"], 2): c for n, c in enumerate(supply["counts"]) if c}
        self.assertEqual(drawn, {4.98: 40, 4.99: 40, 5.0: 40, 5.01: 40, 5.02: 40})
        self.assertEqual([supply["allowed_from"], supply["allowed_below"]], [4.75, 5.26])

    def test_the_latest_failing_runs(self):
        items = [item(f"Item {n}", "fail", failed="^" + "long" * 99 + "^", codes=(1, n)) for n in range(7)]
        runs = [(f"2026111708{n // 60:02}{n % 60:02}", result) for n, result in enumerate(["fail", "timeout", "stop", ""] * 160)]
        random.Random(7).shuffle(runs)
        for n, (start, result) in enumerate(runs):
            self.write(f"{n % 9}/{n}", report("U", start, "pass", items[:1]) +
                       report(start, start, result, items if result == "fail" else [], result + " 1"))
        data = self.data(".")
        self.assertEqual(data["failing_runs_in_all"], 640)
        latest = sorted(runs, reverse=True)[:500]
        self.assertEqual([(run["serial_number"], run["result"], run["group"]) for run in data["failing_runs"]],
                         [(start, result, result + " 1") for start, result in latest])
        for run in data["failing_runs"]:
            self.assertEqual([len(run["reasons"]), run["more_reasons"]], [5, 2] if run["result"] == "fail" else [0, 0])
            self.assertTrue(all(len(reason) == 301 for reason in run["reasons"]))
            self.assertIn(f"s/n={run['serial_number']}\n", (self.folder / run["file"]).read_text())

    def test_replaces_a_file_at_once_and_writes_to_a_pipe(self):
        self.write("1", *story().values())
        self.call("page", "-o", "page", "1")
        os.link(self.folder / "page", self.folder / "before")
        self.call("page", "-o", "page", "-b", "sm", "1")
        self.assertNotEqual(*[(self.folder / name).read_bytes() for name in ("page", "before")])
        self.assertEqual((self.folder / "before").read_text(), self.call("page", "-o", "-", "1"))
        self.assertEqual(self.call("page", "-o", "/dev/stdout", "1"), self.call("page", "1"))


class Numbers(Case):
    def test_against_python(self):
        # All numbers of the summary, computed a second time from what was written.
        draw = random.Random(1117)
        number = lambda low, high, count=1: [draw.randint(low, high) for _ in range(count)]
        runs = []
        for n in range(400):
            rows = [("4.75~5.25", [f"{draw.gauss(5, 0.1):.2f}"]), ("5.30>", [f"{draw.gauss(5, 0.1):.2f}"]),
                    ("4<=", number(1, 9) + number(-10**6, 10**6)), ("-3~9999999", number(-2**31, 2**31 - 1, 2)),
                    ("1,2", number(0, 9) * 2), ("0!=", number(0, 9) * 2), ("7~7", [7]),
                    (draw.choice(["0~9", "0~8"]), [draw.choice([1, 2, 3, "nan"])])]
            items = [item(f"Item {i}", draw.choice(["pass"] * 6 + ["fail", None]), spec, ",".join(map(str, values)),
                          (1, i), int(draw.expovariate(1 / 3000)), draw.choice([0, 0, 0, 1]),
                          draw.choice(["08", "09"]) if i == 7 else "") for i, (spec, values) in enumerate(rows)]
            runs.append((f"U{draw.randint(1, 150)}" if n else "",
                         f"202611{draw.randint(1, 9):02}{draw.randint(0, 3):02}0000",
                         draw.choice(["pass", "pass", "fail", "timeout", "stop", ""]), items,
                         draw.choice(["1.0", "1.1", "2.0"])))
            self.write(f"{n % 7}/{n:04}", report(*runs[n]))
        # Files are read folder by folder: that order decides between equal start times.
        runs = [runs[n] for n in sorted(range(400), key=lambda n: (n % 7, n))]
        got = json.loads(self.call("summary", "--json", "--by", "mm", "."))
        self.assertEqual(got, json.loads(self.call("summary", "--json", "--by", "mm", ".")))

        in_time = sorted(runs, key=lambda run: run[1])
        parts = {"runs": runs,
                 "first_runs": {run[0]: run for run in reversed(in_time) if run[0]}.values(),
                 "last_runs": {run[0]: run for run in in_time if run[0]}.values()}

        def yields(of=lambda run: True):
            results = {name: [run[2] for run in part if of(run)] for name, part in parts.items()}
            return {name: {"all": len(some), "passed": some.count("pass"),
                           "yield": some.count("pass") / len(some) if some else None}
                    for name, some in results.items()}

        self.assertEqual({name: got[name] for name in parts}, yields())
        self.assertEqual([got["units"], got["without_serial_number"], got["repeated"]],
                         [len(parts["first_runs"]), 1, len(runs) - 1 - len({run[:2] for run in runs if run[0]})])
        groups = [{"value": mm, **yields(lambda run: run[4] == mm)} for mm in ("1.0", "1.1", "2.0")]
        self.assertEqual(got["groups"], sorted(groups, key=lambda group: group["runs"]["yield"]))
        self.assertEqual(got["days"], [{"day": f"2026-11-0{day}", **yields(lambda run: run[1][7] == str(day))}
                                       for day in range(1, 10)])

        everything = [it for run in runs for it in run[3]]
        failures = sum(it["result"] == "fail" for it in everything)
        together = 0
        for row in got["items"]:
            own = [it for it in everything if it["name"] == row["name"]]
            results = [it["result"] for it in own]
            times = sorted(it["duration"] for it in own if it["result"])
            together += results.count("fail")
            self.assertEqual([row["runs"], row["failures"], row["without_result"], row["passed_on_retry"]],
                             [len(times), results.count("fail"), results.count(None),
                              sum(it["result"] == "pass" and it["retries"] > 0 for it in own)])
            self.assertAlmostEqual(row["share"], row["failures"] / failures)
            self.assertAlmostEqual(row["cumulative_share"], together / failures)
            for name, exact in [("median_duration", statistics.median_low(times)),
                                ("duration_95", times[math.ceil(0.95 * len(times)) - 1])]:
                self.assertLessEqual(abs(row[name] - exact), 0 if exact < 1024 else exact / 1000)
        counts = [row["failures"] for row in got["items"]]
        self.assertEqual(counts, sorted(counts, reverse=True))

        normal = statistics.NormalDist().inv_cdf(0.975)
        self.assertEqual(len(got["values"]), 15)
        for row in got["values"]:
            lower, upper, code = row["low"], row["high"], row.get("code")
            texts = [it["measure"].split(",")[row.get("position", 1) - 1] for it in everything
                     if it["name"] == row["item"] and it["result"] and
                     (code is None or (int(it["labels"]), it["spec"]) == (code, f"0~{upper:.0f}"))]
            values = [float(text) for text in texts if text != "nan"]
            n, mean, sd = len(values), statistics.mean(values), statistics.stdev(values)
            self.assertEqual([row["not_numbers"], row["n"], row["min"], row["max"]],
                             [len(texts) - n, n, min(values), max(values)])
            self.assertAlmostEqual(row["mean"] / mean, 1, places=12)
            self.assertAlmostEqual(row["deviation"], sd, delta=sd * 1e-12)
            margins = ([] if lower is None else [mean - lower]) + ([] if upper is None else [upper - mean])
            expected = {}
            if sd and margins:
                cpk = min(margins) / (3 * sd)
                expected["cpk"] = cpk, normal * math.sqrt(1 / (9 * n) + cpk * cpk / (2 * (n - 1))), 9
            if sd and len(margins) == 2:
                # The chi-square distribution of many degrees of freedom, from its normal limit.
                cp = (upper - lower) / (6 * sd)
                expected["cp"] = cp, normal * cp / math.sqrt(2 * (n - 1)), 2
            self.assertEqual(row.keys() & {"cp", "cpk"}, expected.keys(), row)
            for index, (value, width, places) in expected.items():
                for name, number in [("value", value), ("low", value - width), ("high", value + width)]:
                    self.assertAlmostEqual(row[index][name] / number, 1, places=places)
        ranks = [row["cpk"]["value"] for row in got["values"] if "cpk" in row]
        self.assertEqual(ranks, sorted(ranks))
        self.assertTrue(all("cpk" in row for row in got["values"][:len(ranks)]))

    def test_few_values(self):
        # An index takes 30 values.
        for n in range(30):
            self.write(f"{n:02}", report("U", f"202602{n + 1:02}{n % 25:02}0000", "pass", [item("A", "pass", "0~9", n % 3)]))
            summary = json.loads(self.call("summary", "-j", "."))
            value, = summary["values"]
            self.assertEqual(["cpk" in value, value["deviation"] is None], [n == 29, n == 0])
            self.assertEqual(summary["without_start_time"], (n >= 24) + max(0, n - 27))
            self.assertIsNone(summary["items"][0]["share"])
        self.assertIn("taken as a unit's first: 3 runs\n", self.call("summary", "."))


    def test_ten_rows(self):
        # What a terminal shows of more, and in which order.
        for count in (10, 12):
            for n in range(36):
                items = [item(f"I{k}", "pass", "0~99", n % 3 + k, (1, k), retries=int(n <= k)) for k in range(count)]
                self.write(str(n), report(f"U{n}", "20261117000000", "pass", items, str(n % count)))
            text = self.call("summary", "--by", "mm", ".")
            self.assertEqual(re.findall("  and (.+) more", text), ["2"] * 4 if count > 10 else [])
            self.assertEqual("farthest from its limits:\n  I11, " in text, count > 10)
            retried = text.partition("on a retry")[2].partition("Measured")[0]
            self.assertEqual(re.findall(r"^  I(\d+), ", retried, re.M), [str(count - 1 - k) for k in range(10)])


class Hostile(Case):
    def test_every_output_is_valid(self):
        # Whatever is in a name, all rows come through, as text.
        draw = random.Random(7)
        names = ['=cmd|"x",y', "</script><script>", "\x1b[2J", "\r", "]]>", "\udcff\udcfe\udcc3", "\x00a"]
        names += ["".join(chr(c) if c < 128 else chr(0xDC00 + c) for c in draw.choices(range(1, 256), k=30))
                  .replace("\n", "") for _ in range(40)]
        for n, name in enumerate(names):
            self.write(f"{n}", report(name, name, "pass", [item(name, "fail", name, name, failed=f"^{name}^")], name)
                       .replace(f"starttime={name}", "starttime=2"))
        rows = list(csv.DictReader(io.StringIO(self.call("table", "."), newline="")))
        lines = [json.loads(line) for line in self.call("table", "-f", "jsonl", ".").splitlines()]
        self.assertEqual([row["item"] for row in rows], [line["item"] for line in lines])
        self.assertEqual({row["file"] for row in rows}, {f"./{n}" for n in range(len(names))})
        self.assertTrue(all(None not in row and None not in row.values() for row in rows))
        self.assertIn('=cmd|"x",y', {row["item"] for row in rows})
        items = {row["name"] for row in json.loads(self.call("summary", "-j", "--by", "mm", "."))["items"]}
        self.assertLessEqual(items, {row["item"] for row in rows})
        for words in [("show",), ("summary", "--by", "mm")]:
            self.assertEqual(re.findall(r"[\x00-\x08\x0b-\x1f\x7f-\x9f]", self.call(*words, ".")), [])


class JUnit(Case):
    def test_cases_and_counts(self):
        # Valid against the schema, and every case and count what the report says, whatever its texts hold.
        hostile = b"</testcase>\"'&<b>]]>\xff\x01\xef\xbf\xbf".decode("utf-8", "surrogateescape")
        text = "</testcase>\"'&<b>]]>" + 3 * "\ufffd"
        measured = dict(spec="1.00<=", measure="2.50", duration=61025)
        passed = item(hostile, **measured)
        failed = item(hostile, "fail", failed=f"normal;1;2;3^{hostile}^", **measured)
        none = item(hostile, None)
        wrong = item(hostile, "fail", wrong=["data"])
        for result, items, counts, kinds, status in [
                ("fail", [passed, failed, wrong, none, item(hostile, "fail", wrong=["spec", "list"]), none],
                 "6 1 2 2", [None, "failure", "error", "skipped", "error", "skipped"], 1),
                ("pass", [passed, none], "2 0 0 1", [None, "skipped"], 0),
                # No item tells that the run was stopped.
                ("stop", [passed], "2 0 1 0", [None, "error"], 1)]:
            self.write("run.txt", report(hostile, "20261117001329", result, items, model="M<1>"))
            xml = self.call("junit", "run.txt", status=status)
            valid = subprocess.run([XMLLINT, "--noout", "--relaxng", HERE / "junit.rng", "-"],
                                   input=xml.encode(), stderr=subprocess.PIPE)
            self.assertEqual(valid.returncode, 0, valid.stderr)
            suite, = ElementTree.fromstring(xml)
            self.assertEqual([suite.get(name) for name in "tests failures errors skipped".split()], counts.split())
            self.assertEqual([suite.get(name) for name in "name timestamp time".split()],
                             [text + " 2026-11-17 00:13:29", "2026-11-17T00:13:29", "0.420"])
            properties = {one.get("name"): one.get("value") for one in suite.iter("property")}
            self.assertEqual([properties["mm"], properties["result"]], ["1.0", result])
            cases = suite.findall("testcase")
            self.assertEqual([case[0].tag if len(case) else None for case in cases], kinds)
            self.assertEqual([cases[0].get(name) for name in ("classname", "name", "time")],
                             ["M<1>", text + ", 0x10 01", "61.025"])
            for failure in suite.iter("failure"):
                self.assertRegex(failure.get("message"), "^noted: .*; detail: .*; outside: ")
                for part in ("normal;1;2;3", text, "2.50", "<= 1.00"):
                    self.assertIn(part, failure.get("message"))
                    self.assertIn(part, failure.text)


unittest.main(argv=sys.argv[:1])

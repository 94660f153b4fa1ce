#!/usr/bin/env python3
"""Plants faults in the library, one at a time, and tells which of them no test finds.

Works on copies of the tree in its present state, never on the tree itself. The faults are spread
evenly over all places where one can be planted, so the same tree and number give the same faults.
"""

import argparse
import concurrent.futures
import difflib
import pathlib
import queue
import re
import shutil
import subprocess
import sys
import tempfile

TREE = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src/common", "src/automation_interface", "src/InspectionLogger",
           "src/PelkoAppClientLogger")
TABLES = ("sub_item_names.cpp", "local_sets.cpp")  # rows of one kind: a tenth of them will do
TEST_LIMIT = 180  # seconds; a test run that takes longer has found the fault as well

# What is looked for in a line, and what takes its place.
RULES = [(re.compile(pattern), replacement) for pattern, replacement in [
    (r" == ", " != "),
    (r" != ", " == "),
    (r" < ", " <= "),
    (r" <= ", " < "),
    (r" > (?!\")", " >= "),
    (r" >= ", " > "),
    (r" && ", " || "),
    (r" \|\| ", " && "),
    (r" \+ ", " - "),
    (r" - ", " + "),
    (r"\btrue\b", "false"),
    (r"\bfalse\b", "true"),
    (r"\bkError\b", "kInfo"),
    (r"\bkInfo\b", "kDebug"),
    (r"\bkDebug\b", "kInfo"),
    (r"\bif \((?=.*\) \{$)", "if (!"),
    (r"(?<!\* )(?<![\w.\"'\\%x])(\d+)(?![\w.\"'])", lambda match: str(int(match[1]) + 1)),
    (r"(?<=[^\\%])\"(?=[,;)}]|$)", "~\""),
    (r"^    +(?!return|const|static|auto|g_auto|using)[\w:.>*-]+(\(.*\)| \+?= .*);$", ";"),
    (r"^    +(break|continue);$", ";"),
]]
# Lines that say nothing at run time.
DEAD = re.compile(r"^\s*(//|#|\*|static_assert|using |namespace|struct |class |template|extern )|// NOLINT")


def git(*words):
    return subprocess.run(["git", "-C", TREE, *words], check=True, capture_output=True,
                          text=True).stdout


def lines_changed_since(revision):
    """For each file that is not as it was in the revision: the numbers of its lines that are not."""
    changed = {pathlib.Path(path): set(range(len((TREE / path).read_text().splitlines())))
               for path in git("ls-files", "--others", "--exclude-standard", *FOLDERS).splitlines()}
    for line in git("diff", "--unified=0", "--no-color", "--no-ext-diff", "--src-prefix=a/",
                    "--dst-prefix=b/", revision, "--", *FOLDERS).splitlines():
        if line.startswith("+++ b/"):
            lines = changed.setdefault(pathlib.Path(line[6:]), set())
        elif hunk := re.match(r"@@ -\S+ \+(\d+)(?:,(\d+))? @@", line):
            first, count = int(hunk[1]) - 1, int(hunk[2] or 1)
            lines.update(range(first, first + count))
    return changed


def faults_of(path, changed=None):
    lines = path.read_text().splitlines(keepends=True)
    for number, line in enumerate(lines):
        if changed is not None and number not in changed:
            continue
        if DEAD.search(line):
            continue
        code = line.rstrip("\n")
        for pattern, replacement in RULES:
            for match in pattern.finditer(code):
                faulty = code[:match.start()] + match.expand(replacement) + code[match.end():] \
                    if isinstance(replacement, str) \
                    else code[:match.start()] + replacement(match) + code[match.end():]
                if "if (!" in faulty and replacement == "if (!":
                    condition = re.match(r"(.*if \(!)(.*)(\) \{)$", faulty)
                    faulty = f"{condition[1]}({condition[2]}){condition[3]}"
                yield path.relative_to(TREE), number, line, faulty + "\n"


class Workshop:
    """A copy of the tree, built once, in which faults are planted."""

    def __init__(self, folder):
        self.tree = folder / "tree"
        self.build = folder / "build"
        shutil.copytree(TREE, self.tree, ignore=shutil.ignore_patterns("build", ".git"))
        self.run("cmake", "-S", self.tree, "-B", self.build, "-DCMAKE_BUILD_TYPE=Debug",
                 "-DFA_API_BUILD_TESTS=ON", check=True)
        self.run("cmake", "--build", self.build, check=True)
        if self.tests_find_it():
            sys.exit("mutate: the tests fail without any fault")

    @staticmethod
    def run(*command, **options):
        return subprocess.run([str(word) for word in command], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=options.get("check", False),
                              timeout=options.get("timeout"))

    def tests_find_it(self):
        try:
            # Those of the simulated set, the fixtures and fa-report test these, not the library.
            done = self.run("ctest", "--test-dir", self.build, "--stop-on-failure", "--timeout",
                            "60", "-E", "SimulatedSet|SetFixture|pytest|fa_report",
                            timeout=TEST_LIMIT)
        except subprocess.TimeoutExpired:
            return True
        return done.returncode != 0

    def judge(self, fault):
        path, number, _, faulty = fault
        source = self.tree / path
        original = source.read_text()
        lines = original.splitlines(keepends=True)
        lines[number] = faulty
        source.write_text("".join(lines))
        try:
            if self.run("cmake", "--build", self.build, "--target", "fa_api").returncode != 0:
                return "not compiled"
            return "found" if self.tests_find_it() else "missed"
        finally:
            source.write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=250, help="faults to plant (default 250)")
    parser.add_argument("--jobs", type=int, default=2, help="copies that work at once (default 2)")
    parser.add_argument("--only", default="", help="only files whose path holds this text")
    parser.add_argument("--since", metavar="REV", help="only lines that have changed since REV")
    options = parser.parse_args()

    sources = sorted(source for folder in FOLDERS for source in (TREE / folder).glob("*.*")
                     if options.only in str(source.relative_to(TREE)))
    if options.since:
        changed = lines_changed_since(options.since)
        every = [fault for source in sources
                 for fault in faults_of(source, changed.get(source.relative_to(TREE), set()))]
    else:
        every = [fault for source in sources
                 for fault in list(faults_of(source))[::10 if source.name in TABLES else 1]]
    if not every:
        sys.exit("mutate: there is no place for a fault")
    step = max(1.0, len(every) / options.count)
    chosen = [every[int(index * step)] for index in range(min(options.count, len(every)))]
    print(f"{len(every)} places for a fault, {len(chosen)} chosen", flush=True)

    with tempfile.TemporaryDirectory() as folder:
        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            workshops = queue.Queue()
            folders = [pathlib.Path(folder) / str(job) for job in range(options.jobs)]
            for workshop in pool.map(Workshop, folders):
                workshops.put(workshop)

            def judge(fault):
                workshop = workshops.get()
                try:
                    return workshop.judge(fault)
                finally:
                    workshops.put(workshop)

            verdicts = []
            for fault, verdict in zip(chosen, pool.map(judge, chosen)):
                verdicts.append(verdict)
                if verdict == "missed":
                    path, number, line, faulty = fault
                    change = list(difflib.ndiff([line], [faulty]))
                    print(f"MISSED {path}:{number + 1}", *(text.rstrip() for text in change
                          if text[0] in "-+"), sep="\n  ", flush=True)

    found, missed = verdicts.count("found"), verdicts.count("missed")
    print(f"planted {found + missed}, found {found}, missed {missed} "
          f"({verdicts.count('not compiled')} more did not compile)")
    print(f"found: {100 * found / max(1, found + missed):.1f} %")


if __name__ == "__main__":
    main()

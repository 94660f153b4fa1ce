#!/usr/bin/env python3
"""Runs every snippet of the pages, in their order, as a reader would.

usage: tools/snippets.py [--installed] [PAGE...]

Without pages, all of the tree, README.md first: it installs the library for those that follow. With
--installed the snippets that need the tree are left out, and the system's library serves. What
stands after the language of a fenced block says what is done with it:

  sh                runs in the page's own folder; variables live on in later blocks
  sh tree           runs in the top folder of the tree
  sh fails          the same as sh, and has to end with another status than 0
  sh typing WORDS   runs with a line of these words on its standard input
  sh until WORDS    goes on running beside the next block once it has printed these words
  cpp FILE, c FILE  is written into the page's folder and compiled, with warnings as errors; with
                    "c++17" after it as that only, else as C++11 as well
  cmake FILE, ...   is written into the page's folder (so are python, json, ini and xml)
  text output       is what the block before it prints
  LANGUAGE not run: WHY

A <pre> block is a session at a terminal; what is typed in it is bold. In all output "…" stands for
any text within a line, and alone on a line for any lines.
"""
import html
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import threading
import time

TREE = pathlib.Path(__file__).resolve().parent.parent
WORK = TREE / "build/snippets"
PATIENCE = 1200  # seconds, for any one block
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror", "-fsyntax-only"]
RUN = {"sh"}
WRITTEN = {"cpp", "c", "cmake", "python", "json", "ini", "xml"}
BLOCK = re.compile(r"^```(\w*) ?([^\n]*)\n(.*?)^```$|^<pre>\n(.*?)^</pre>$", re.M | re.S)
SHELL = ["bash", "-euo", "pipefail", "-c"]


class Wrong(Exception):
    pass


def pattern(lines):
    """The regular expression of some lines of expected output."""
    return "".join(r"(?:.*\n)*?" if line == "…\n" else re.escape(line).replace("…", ".*")
                   for line in lines)


def compare(expected, real):
    if re.fullmatch(pattern(expected.splitlines(True)), real):
        return
    lines = expected.splitlines(True)
    right = max(n for n in range(len(lines) + 1) if re.match(pattern(lines[:n]), real))
    first = lines[right] if right < len(lines) else "(the end)\n"
    raise Wrong(f"shown, but not printed: {first}printed:\n{real}")


class Page:
    """Runs the blocks of one page; `environment` is shared by all pages."""

    def __init__(self, path, environment):
        self.environment = environment
        self.folder = WORK / f"{path.parent.name}-{path.stem}"  # two folders have a README
        self.folder.mkdir()
        self.output = None
        self.beside = None

    def run(self, language, info, text):
        if re.match(r"not run: \S", info):
            return "not run"
        if language in RUN:
            word, _, rest = info.partition(" ")
            if word not in ("", "tree", "fails", "typing", "until"):
                raise Wrong(f"what does \"{info}\" mean?")
            return self.shell(text, word, rest)
        if language == "text" and info == "output":
            if self.output is None:
                raise Wrong("nothing has run before it")
            compare(text, self.output)
            return "output"
        if language == "text":
            return None
        if language in WRITTEN and info:
            return self.write(language, *info.split(), text)
        if language in ("", "cpp", "c", "cmake", "python", "bash", "shell", "console"):
            raise Wrong("neither run nor excused")
        return None

    def shell(self, text, word, rest):
        # The variables are kept for the blocks that follow.
        script = text + "\nenv -0 >\"$SNIPPET_ENVIRONMENT\"\n"
        kept = WORK / "environment"
        process = subprocess.Popen(SHELL + [script], cwd=TREE if word == "tree" else self.folder,
                                   env={**self.environment, "SNIPPET_ENVIRONMENT": str(kept)},
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT if word == "until" else
                                   subprocess.PIPE,
                                   encoding="utf-8", start_new_session=word == "until")
        if word == "until":
            self.beside = process, ""
            limit = threading.Timer(PATIENCE, process.kill)
            limit.daemon = True
            limit.start()
            while rest not in self.beside[1]:
                line = process.stdout.readline()
                if not line:
                    raise Wrong(f"ended before it printed \"{rest}\":\n{self.beside[1]}")
                self.beside = process, self.beside[1] + line
            return "runs"
        try:
            self.output, errors = process.communicate(
                rest + "\n" if word == "typing" else None, PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            raise Wrong(f"takes longer than {PATIENCE} s") from None
        if (process.returncode != 0) != (word == "fails"):
            raise Wrong(f"ends with status {process.returncode}\n{self.output[-4000:]}{errors[-4000:]}")
        if word != "fails":
            self.environment.update(
                pair.split("=", 1) for pair in kept.read_text("utf-8").split("\0") if "=" in pair)
        if self.beside:
            other, self.beside = self.beside, None
            self.output = other[1] + other[0].communicate(timeout=PATIENCE)[0]
            if other[0].returncode != 0:
                raise Wrong(f"the block beside it ends with {other[0].returncode}\n{self.output}")
        return "run"

    def write(self, language, name, *rest):
        *standards, text = rest
        (self.folder / name).write_text(text, "utf-8")
        compilers = {"cpp": [["g++", "-std=" + s] for s in standards or ("c++11", "c++17")],
                     "c": [["gcc", "-std=c99"]]}.get(language, [])
        for compiler in compilers:
            flags = subprocess.run(["pkg-config", "--cflags", "fa_api"], env=self.environment,
                                   check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout
            done = subprocess.run(compiler + STRICT + [name] + flags.split(), cwd=self.folder,
                                  stderr=subprocess.PIPE, encoding="utf-8", check=False)
            if done.returncode != 0:
                raise Wrong(f"{' '.join(compiler)}:\n{done.stderr}")
        return "compiled" if compilers else "written"

    def session(self, text):
        parts = [html.unescape(part) for part in re.split(r"</?b>", text)]
        if parts[0] != "$ ":
            raise Wrong("a session begins with \"$ \" and a bold command")
        master, slave = pty.openpty()
        process = subprocess.Popen(SHELL + [parts[1]], cwd=self.folder, env=self.environment,
                                   stdin=slave, stdout=slave, stderr=slave,
                                   start_new_session=True)
        os.close(slave)
        expected = "".join(parts[2:]).lstrip("\n")
        typed, prompt, real = parts[3::2], parts[2::2], ""
        deadline = time.monotonic() + 60
        while select.select([master], [], [], max(0, deadline - time.monotonic()))[0]:
            try:
                real += os.read(master, 4096).decode("utf-8").replace("\r\n", "\n")
            except OSError:  # nobody holds the terminal any longer
                break
            if typed and real.endswith(prompt[0].splitlines()[-1]):
                os.write(master, typed.pop(0).encode() + b"\n")
                prompt.pop(0)
        else:
            process.kill()
        os.close(master)
        if process.wait() != 0:
            raise Wrong(f"ends with status {process.returncode}\n{real}")
        compare(expected, real)
        return "session"


def blocks(path, installed):
    text = path.read_text("utf-8")
    for match in re.finditer(r"^[ \t>]*(?:```|~~~)", BLOCK.sub("", text), re.M):
        raise Wrong("a fenced block begins with ``` and its language at the begin of a line")
    left_out = False
    for match in BLOCK.finditer(text):
        language, info, body, session = match.groups()
        if info != "output" and not (info or "").startswith("not run"):  # output is the last run's
            left_out = installed and (info or "").startswith("tree")
        if not left_out:
            yield text.count("\n", 0, match.start()) + 1, language, info, body, session


def run_page(path, environment, installed, counts):
    page = Page(path, environment)
    line = 0
    try:
        for line, language, info, body, session in blocks(path, installed):
            done = page.session(session) if session else page.run(language, info, body)
            if done:
                counts[done] = counts.get(done, 0) + 1
                print(f"{path.name}:{line}: {done}", flush=True)
        if page.beside:
            raise Wrong("no block follows this one, which goes on running")
    except Wrong as wrong:
        print(f"{path.name}:{line}: {wrong}", file=sys.stderr)
        return False
    finally:
        if page.beside:
            os.killpg(page.beside[0].pid, signal.SIGTERM)
    return True


def main():
    arguments = sys.argv[1:]
    if "--help" in arguments:
        print(__doc__.strip())
        return 0
    installed = "--installed" in arguments
    pages = [pathlib.Path(a).resolve() for a in arguments if a != "--installed"]
    if not pages:
        listed = subprocess.run(["git", "ls-files", "*.md"], cwd=TREE, check=True,
                                stdout=subprocess.PIPE, encoding="utf-8").stdout.split()
        pages = sorted((TREE / name for name in listed), key=lambda page: page != TREE / "README.md")
    shutil.rmtree(WORK, ignore_errors=True)
    home = WORK / "home"
    home.mkdir(parents=True)
    environment = {**os.environ, "HOME": str(home)}
    environment.pop("FA_PLATFORM_PROFILE", None)
    counts = {}
    for path in pages:
        if not run_page(path, environment, installed, counts):
            return 1
    print("snippets: " + ", ".join(f"{count} {done}" for done, count in sorted(counts.items())))
    return 0


if __name__ == "__main__":
    sys.exit(main())

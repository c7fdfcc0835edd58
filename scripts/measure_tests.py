#!/usr/bin/env python3
"""Measures how many faults the tests notice.

Changes single lines of src/core and src/raster, and of their headers, one at a time: builds, runs the tests, and puts
the line back. Prints the share of changes that made a test fail, and those that none did. docs/testing.md tells more.

    scripts/measure_tests.py --count 20
"""

import argparse
import collections
import json
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src/core", "src/raster", "include/zmt/core", "include/zmt/raster")
# The quickest first.
TESTS = ("raster_tests", "core_tests", "app_tests")
# A header that more steps of the build hang on is not cheap.
MOST_STEPS_OF_A_HEADER = 12

Change = collections.namedtuple("Change", "path line kind old new")


class Problem(Exception):
    """What ends the measurement, in one line."""


# --- where a line may be changed


def blank(text, pattern):
    """`text` with spaces in the place of what matches."""
    return re.sub(pattern, lambda match: re.sub(r"[^\n]", " ", match.group()), text, flags=re.DOTALL | re.MULTILINE)


def changeable(text):
    """`text` without what no test need notice: comments, texts, directives, reports, room for elements."""
    text = blank(text, r'//[^\n]*|/\*.*?\*/|L?"(?:\\.|[^"\\\n])*"|\'(?:\\[^\'\n]+|[^\'\\\n])\'')
    text = blank(text, r"^\s*#[^\n]*|\b\w+\.reserve\([^\n]*|(?<=\w)\[\d+\](?=[;,])")
    return blank(text, r"\b(?:NBX_\w+|static_assert)\s*\(.*?\)(?:;|$)")


# --- what a line may become: (kind, start, end, replacement)

SWAPPED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "+": "-", "-": "+", "+=": "-=",
           "-=": "+=", "&&": "||", "||": "&&", "min": "max", "max": "min"}
AXES = {"x": "y", "y": "x", "X": "Y", "Y": "X", "width": "height", "height": "width", "Width": "Height",
        "Height": "Width"}


def replaced(kind, line, pattern):
    for match in re.finditer(pattern, line):
        yield kind, match.start(1), match.end(1), SWAPPED[match.group(1)]


def other_axis(line):
    """x for y in whole names, and at the end of names such as cellSizeX."""
    for match in re.finditer(r"\b(x|y|width|height)\b|(?<=[a-z])(X|Y|Width|Height)\b", line):
        yield "axis", match.start(), match.end(), AXES[match.group()]


def off_by_one(line):
    for match in re.finditer(r"(?<![\w.])(\d+)((?:\.\d+)?[uUlLfF]*)(?![\w.])", line):
        number = int(match.group(1))
        for other in (number + 1, number - 1):
            if other >= 0:
                yield "constant", match.start(), match.end(), str(other) + match.group(2)


def negated(line):
    for match in re.finditer(r"\b(?:if|while) \(", line):
        depth = 1
        for end in range(match.end(), len(line)):
            depth += {"(": 1, ")": -1}.get(line[end], 0)
            if depth == 0:
                if ";" not in line[match.end():end]:
                    yield "condition", match.end(), end, "!(" + line[match.end():end] + ")"
                break


def removed(line, before):
    """A statement that fills its line. What ends on the line, and what begins on it, must be whole."""
    statement = line.strip()
    is_statement = re.match(r"(\+\+|--|\*)?[a-z][\w.:>\[\]-]*( [-+*/|&]?= |\(|\[|;)", statement)
    is_other = re.match(r"(return|throw|using|delete|else|case|default|if|for|while|do|class|enum|explicit)\b",
                        statement)
    stands_alone = re.search(r"([;{}:]|\belse|\))?$", before.rstrip()).group()
    if (is_statement and not is_other and statement.endswith(";") and stands_alone
            and statement.count("(") == statement.count(")")):
        start = len(line) - len(line.lstrip())
        yield "statement", start, start + len(statement), ";"


def changes_of_line(line, before):
    yield from replaced("comparison", line, r" (<|<=|>|>=|==|!=) ")
    yield from replaced("sign", line, r" ([-+]=?) ")
    yield from replaced("min and max", line, r"\bstd::(min|max)\b")
    yield from replaced("and and or", line, r" (&&|\|\|) ")
    yield from other_axis(line)
    yield from off_by_one(line)
    yield from negated(line)
    yield from removed(line, before)


def changes_of_file(path):
    text = (ROOT / path).read_text(encoding="utf-8")
    lines = text.split("\n")
    before = ""
    for number, code in enumerate(changeable(text).split("\n")):
        if not re.match(r"\s*(template|using|class|struct|namespace)\b", code):
            for kind, start, end, new in changes_of_line(code, before):
                if kind == "condition":
                    new = "!(" + lines[number][start:end] + ")"
                yield Change(path, number, kind, lines[number], lines[number][:start] + new + lines[number][end:])
        if code.strip():
            before = code


def drawn(seed, pattern):
    """All changes in an order at random, in which every kind has its turn."""
    paths = sorted(path.relative_to(ROOT).as_posix() for folder in FOLDERS for path in (ROOT / folder).rglob("*")
                   if path.suffix in (".cpp", ".h"))
    kinds = collections.defaultdict(list)
    for path in paths:
        if re.search(pattern, path):
            for change in changes_of_file(path):
                kinds[change.kind].append(change)
    if not kinds:
        raise Problem(f"no source matches '{pattern}'; --match takes a regular expression over paths")
    generator = random.Random(seed)
    for changes in kinds.values():
        generator.shuffle(changes)
    while kinds:
        kind = generator.choice(sorted(kinds))
        yield kinds[kind].pop()
        if not kinds[kind]:
            del kinds[kind]


# --- the build and the tests


def run(command, limit=None, **options):
    """Exit status and output; None for a status after `limit` seconds. Nothing outlives the call."""
    process = subprocess.Popen(command, cwd=ROOT, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True, errors="replace", start_new_session=True,
                               **options)
    try:
        output = process.communicate(timeout=limit)[0]
        return process.returncode, output
    except subprocess.TimeoutExpired:
        return None, ""
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


class Build:
    def __init__(self, folder, jobs, targets):
        self.folder, self.jobs = folder, jobs
        # Executables are not linked again for a library that they load.
        status, output = run(["cmake", "--preset", "release", "-B", folder, "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"])
        if status != 0:
            raise Problem("the build could not be configured:\n" + output)
        status, output = self.build(targets)
        if status != 0:
            raise Problem("the unchanged sources do not build:\n" + output[-4000:])
        _, output = run(["ctest", "--test-dir", folder, "--show-only=json-v1"])
        self.tests = {test["name"]: test for test in json.loads(output)["tests"] if test["name"] in targets}

    def build(self, targets, *options):
        return run(["ninja", "-C", self.folder, "-j", str(self.jobs), *options, *targets])

    def steps(self, targets):
        """How many commands the next build would run."""
        _, output = self.build(targets, "-n")
        return max((int(total) for total in re.findall(r"^\[\d+/(\d+)\]", output, re.MULTILINE)), default=0)

    def start(self, name, arguments, limit):
        test = self.tests[name]
        properties = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
        environment = dict(entry.split("=", 1) for entry in properties.get("ENVIRONMENT", []))
        return run(test["command"] + arguments, limit, env=os.environ | environment)

    def suites_of(self, name, path):
        """The suites that bear the name of the file, as a filter; empty where there are none."""
        stem = pathlib.PurePath(path).stem
        _, output = self.start(name, ["--gtest_list_tests"], 60)
        suites = re.findall(r"^([^\s.]+)\.", output, re.MULTILINE)
        return ":".join(suite + ".*" for suite in suites if stem in suite.lower())


def first_failure(status, output):
    if status is None:
        return "time limit"
    match = re.search(r"\[  FAILED  \] ([^\s,]+)", output)
    return match.group(1) if match else f"exit status {status}"


def failure(build, name, chosen, limit):
    """The test that fails among the chosen ones, or None. One that passes when it is repeated failed for the load of
    the machine, unless it fails again with the others."""
    suspects = set()
    while True:
        status, output = build.start(name, ["--gtest_fail_fast", "--gtest_filter=" + chosen], limit)
        if status == 0:
            return None
        found = first_failure(status, output)
        if found in suspects or "." not in found:
            return found
        if build.start(name, ["--gtest_filter=" + found], limit)[0] != 0:
            return found
        suspects.add(found)


def notice(build, change, limits):
    """What noticed the change that is built, or None."""
    for name in limits:
        if name == "raster_tests" and "/raster/" not in change.path:
            continue  # it loads nothing of the layers above
        for chosen in filter(None, (build.suites_of(name, change.path), "*")):
            found = failure(build, name, chosen, limits[name])
            if found:
                return found
    return None


def limits_of(build, limit):
    """Seconds that each executable may take. The unchanged sources have to pass."""
    limits = {}
    for name in filter(build.tests.get, TESTS):
        start = time.monotonic()
        status, output = build.start(name, [], None)
        if status != 0:
            raise Problem(f"{name} fails with the unchanged sources: {first_failure(status, output)}")
        limits[name] = limit or 30 + 4 * (time.monotonic() - start)
        print(f"{name} pass; they may take {limits[name]:.0f} s", flush=True)
    return limits


class Changed:
    """The file with the change, as long as the block runs."""

    def __init__(self, change):
        self.path, self.change = ROOT / change.path, change

    def __enter__(self):
        self.original = self.path.read_bytes()
        lines = self.original.decode("utf-8").split("\n")
        if lines[self.change.line] != self.change.old:
            raise Problem(f"{self.change.path} was changed meanwhile; leave the sources alone until the end")
        lines[self.change.line] = self.change.new
        self.path.write_bytes("\n".join(lines).encode("utf-8"))

    def __exit__(self, *_):
        self.path.write_bytes(self.original)


def described(change):
    return (f"{change.path}:{change.line + 1}: {change.kind}\n"
            f"      - {change.old.strip()}\n      + {change.new.strip()}")


def measure(build, changes, count, limits):
    """The changes that the tests noticed and those that they did not."""
    noticed, unnoticed = [], []
    for change in changes:
        if len(noticed) + len(unnoticed) == count:
            break
        with Changed(change):
            if change.path.endswith(".h") and build.steps(limits) > MOST_STEPS_OF_A_HEADER:
                continue
            if build.build(limits)[0] != 0:
                continue
            reason = notice(build, change, limits)
        (noticed if reason else unnoticed).append(change)
        print(f"{len(noticed) + len(unnoticed)}/{count} {'noticed by ' + reason if reason else 'NOT NOTICED'}: "
              f"{described(change)}", flush=True)
    return noticed, unnoticed


def report(noticed, unnoticed):
    total = len(noticed) + len(unnoticed)
    if total == 0:
        print("no change was tried to its end")
        return
    print(f"\nnoticed {len(noticed)} of {total} changes ({100 * len(noticed) / total:.0f} %)")
    kinds = sorted({change.kind for change in noticed + unnoticed})
    for kind in kinds:
        seen, missed = (sum(change.kind == kind for change in changes) for changes in (noticed, unnoticed))
        print(f"  {kind}: {seen} of {seen + missed}")
    if unnoticed:
        print("not noticed:")
        for change in sorted(unnoticed):
            print("  " + described(change))


def parsed():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--count", type=int, default=300, help="changes to try (300)")
    parser.add_argument("--seed", type=int, default=1, help="another choice of changes (1)")
    parser.add_argument("--match", default="", metavar="REGEX", help="only files whose path matches")
    parser.add_argument("--build", default="build/measure", metavar="FOLDER", help="where to build (build/measure)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="steps of the build at a time")
    parser.add_argument("--tests", nargs="+", choices=TESTS, default=TESTS, metavar="NAME",
                        help="executables to run; by default " + ", ".join(TESTS))
    parser.add_argument("--limit", type=float, help="seconds for an executable; by default 30 and four times what "
                        "it takes unchanged")
    parser.add_argument("--list", action="store_true", help="only show what would be tried, buildable or not")
    return parser.parse_args()


def main():
    arguments = parsed()
    changes = drawn(arguments.seed, arguments.match)
    if arguments.list:
        for _, change in zip(range(arguments.count), changes):
            print(described(change))
        return
    build = Build(arguments.build, arguments.jobs, arguments.tests)
    limits = limits_of(build, arguments.limit)
    report(*measure(build, changes, arguments.count, limits))


if __name__ == "__main__":
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(130))
    try:
        main()
    except Problem as problem:
        sys.exit(f"measure_tests: {problem}")

#!/usr/bin/env python3
"""Mutation check: puts small bugs into the library one at a time and sees whether the test
suite notices. Run by hand (see README.md); the sources are restored after every mutation,
on Ctrl-C, on SIGTERM, and by --restore after anything harder."""

import argparse
import json
import os
import re
import signal
import subprocess
import sys
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
DEFAULT_LIST = HERE / "mutations.txt"


class Mutation:
    def __init__(self, name, path, original, replacement, line):
        self.name = name
        self.path = path
        self.original = original
        self.replacement = replacement
        self.line = line


def unescape(text):
    # "\n" and "\t" stand for a line break and a tab; "\\" for a backslash.
    return re.sub(r"\\(.)", lambda m: {"n": "\n", "t": "\t"}.get(m.group(1), m.group(1)), text)


def read_list(path):
    """Blocks of '## name', 'file PATH', '- original', '+ replacement'; '#' lines are comments."""
    mutations, current = [], None
    for number, raw in enumerate(Path(path).read_text().splitlines(), 1):
        line = raw.rstrip("\n")
        if line.startswith("## "):
            current = {"name": line[3:].strip(), "line": number}
            mutations.append(current)
        elif not line.strip() or line.startswith("#"):
            continue
        elif current is None:
            sys.exit(f"{path}:{number}: text before the first '## name'")
        elif line.startswith("file "):
            current["file"] = line[5:].strip()
        elif line.startswith("- "):
            current["original"] = unescape(line[2:])
        elif line.startswith("+ "):
            current["replacement"] = unescape(line[2:])
        elif line == "+":
            current["replacement"] = ""
        else:
            sys.exit(f"{path}:{number}: unreadable line: {line}")
    result = []
    for m in mutations:
        missing = [k for k in ("file", "original", "replacement") if k not in m]
        if missing:
            sys.exit(f"{path}:{m['line']}: mutation '{m['name']}' lacks {', '.join(missing)}")
        result.append(Mutation(m["name"], m["file"], m["original"], m["replacement"], m["line"]))
    return result


class Sources:
    """Keeps the pristine text of the file being mutated, in memory and in a backup file
    in the build directory, so that it can always be put back."""

    def __init__(self, root, build):
        self.root = root
        self.backup = build / "mutation-backup.json"
        self.saved = None

    def recover(self):
        if not self.backup.exists():
            return False
        saved = json.loads(self.backup.read_text())
        (self.root / saved["path"]).write_text(saved["text"])
        self.backup.unlink()
        print(f"restored {saved['path']} from {self.backup}")
        return True

    def apply(self, mutation):
        path = self.root / mutation.path
        text = path.read_text()
        self.saved = (path, text)
        self.backup.write_text(json.dumps({"path": mutation.path, "text": text}))
        path.write_text(text.replace(mutation.original, mutation.replacement, 1))

    def restore(self):
        if self.saved is None:
            return
        path, text = self.saved
        path.write_text(text)
        self.saved = None
        if self.backup.exists():
            self.backup.unlink()


def run(command, log, timeout=None):
    """Runs in its own process group so that a timeout or an interrupt ends all of it."""
    with open(log, "w") as out:
        process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            return process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return None
        except BaseException:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            raise


def failed_tests(log):
    names = []
    for line in Path(log).read_text(errors="replace").splitlines():
        match = re.match(r"\s*\d+ - (\S+) \((Failed|Timeout|Subprocess aborted|SEGFAULT|Exception)", line)
        if match:
            names.append(match.group(1))
    return names


def interrupted(signum, frame):
    raise KeyboardInterrupt


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--source", default=str(HERE.parent.parent), help="source tree (default: this one)")
    parser.add_argument("--build", help="build directory (default: SOURCE/build)")
    parser.add_argument("--list", default=str(DEFAULT_LIST), help="mutation list")
    parser.add_argument("--only", help="run the mutations whose name matches this regular expression")
    parser.add_argument("--tests", help="ctest -R: only these tests (quick trials; not the score)")
    parser.add_argument("-j", "--jobs", type=int, default=2)
    parser.add_argument("--target", default="OnvifTypes",
        help="what to rebuild per mutation (default: the library, which the tests load at run time; "
        "'all' for mutations in headers)")
    parser.add_argument("--all-tests", action="store_true", help="run the whole suite, not until the first failure")
    parser.add_argument("--timeout", type=int, default=1800, help="seconds for one suite run")
    parser.add_argument("--no-baseline", action="store_true", help="skip the run of the unmutated suite")
    parser.add_argument("--report", help="also write the results to this file")
    parser.add_argument("--check", action="store_true", help="only check that every original text is found")
    parser.add_argument("--restore", action="store_true", help="put back a file left mutated by a killed run")
    args = parser.parse_args()

    root = Path(args.source).resolve()
    build = Path(args.build).resolve() if args.build else root / "build"
    sources = Sources(root, build)
    if sources.recover() or args.restore:
        if args.restore:
            return 0

    mutations = read_list(args.list)
    if args.only:
        mutations = [m for m in mutations if re.search(args.only, m.name)]
    bad = []
    for m in mutations:
        count = (root / m.path).read_text().count(m.original)
        if count != 1:
            bad.append(f"{args.list}:{m.line}: '{m.name}': original text found {count} times in {m.path}")
    if bad:
        print("\n".join(bad), file=sys.stderr)
        return 2
    if args.check:
        print(f"{len(mutations)} mutations, every original text found once")
        return 0

    for sig in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(sig, interrupted)
    nice = ["nice", "-n", "10"]
    build_all = nice + ["cmake", "--build", str(build), "-j", str(args.jobs)]
    build_cmd = build_all + ([] if args.target == "all" else ["--target", args.target])
    test_cmd = nice + ["ctest", "--test-dir", str(build), "-j", str(args.jobs), "--output-on-failure"]
    if not args.all_tests:
        test_cmd.append("--stop-on-failure")
    if args.tests:
        test_cmd += ["-R", args.tests]
    logs = build / "mutation-logs"
    logs.mkdir(parents=True, exist_ok=True)

    results = []
    started = time.monotonic()
    try:
        if not args.no_baseline:
            print("baseline: building and running the unmutated suite", flush=True)
            if run(build_all, logs / "baseline-build.log") != 0:
                print(f"the unmutated tree does not build; see {logs / 'baseline-build.log'}")
                return 2
            if run(test_cmd, logs / "baseline-test.log", args.timeout) != 0:
                print(f"the unmutated suite fails: {failed_tests(logs / 'baseline-test.log')}")
                return 2
        for index, m in enumerate(mutations, 1):
            tag = f"{index:02d}"
            clock = time.monotonic()
            print(f"[{tag}/{len(mutations)}] {m.name} ({m.path}) ...", end=" ", flush=True)
            sources.apply(m)
            try:
                if run(build_cmd, logs / f"{tag}-build.log") != 0:
                    status, detail = "invalid", "does not build"
                else:
                    code = run(test_cmd, logs / f"{tag}-test.log", args.timeout)
                    if code is None:
                        status, detail = "killed", "suite timed out"
                    elif code != 0:
                        status, detail = "killed", " ".join(failed_tests(logs / f"{tag}-test.log")) or "ctest failed"
                    else:
                        status, detail = "survived", ""
            finally:
                sources.restore()
            seconds = time.monotonic() - clock
            print(f"{status} {detail} [{seconds:.0f} s]", flush=True)
            results.append((m, status, detail, seconds))
    except KeyboardInterrupt:
        print("\ninterrupted; sources restored", flush=True)
    finally:
        sources.restore()
        # Leaves the build matching the restored sources.
        run(build_cmd, logs / "final-build.log")

    killed = [r for r in results if r[1] == "killed"]
    survived = [r for r in results if r[1] == "survived"]
    invalid = [r for r in results if r[1] == "invalid"]
    scored = len(killed) + len(survived)
    lines = [f"{r[1]:9} {r[0].name}  ({r[0].path}) {r[2]}" for r in results]
    lines.append("")
    lines.append(f"killed {len(killed)} of {scored}" + (f" ({100.0 * len(killed) / scored:.0f}%)" if scored else ""))
    if invalid:
        lines.append(f"{len(invalid)} did not build: " + ", ".join(r[0].name for r in invalid))
    for r in survived:
        lines.append(f"survivor: {r[0].name} ({r[0].path})")
    lines.append(f"wall time {time.monotonic() - started:.0f} s" + (f", tests restricted to '{args.tests}'" if args.tests else ""))
    print("\n".join(lines))
    if args.report:
        Path(args.report).write_text("\n".join(lines) + "\n")
    return 0 if not survived else 1


if __name__ == "__main__":
    sys.exit(main())

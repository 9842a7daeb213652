#!/usr/bin/env python3
"""Mutation sampler: how many small faults in the code do the fast tests catch?

  tools/mutants.py sample [--seed 19] [--count 40] [--rev HEAD] [-o tools/mutants-sample.jsonl]
  tools/mutants.py run [--sample tools/mutants-sample.jsonl] [--rev HEAD] [--report FILE] [--only ID,...]

'sample' lists every place in src/, decode/, cups/ and cli/ (generated tables left out) where an operator
applies, draws a fixed-seed sample, one operator after another, and adds the named mutants below. A mutant
is known by its content: the file, the whole (stripped) line, which occurrence of that line it is, and the
line it becomes. Line numbers are not used, so one sample applies to later commits too: a mutant whose line
is gone is reported as such.

'run' checks the commit out into a scratch worktree (never the caller's tree), builds it once with ccache
and runs the fast tests, then for each mutant: applies it, rebuilds what changed, and
  - stillborn   if it does not build (not counted),
  - equivalent  if every object file it rebuilt is the same code as before, debug info stripped (not counted),
  - killed      if a fast test fails or times out,
  - survived    otherwise.
The score is killed / (killed + survived). On demand only, never in CI: a few minutes a mutant.
"""

import argparse
import datetime
import hashlib
import json
import os
import random
import re
import subprocess
import sys
import tempfile
import time

ROOTS = ("src/", "decode/", "cups/", "cli/")
# Fast tests: all but those that start a printer application, a cupsd, Wine, or regenerate the tables.
SLOW_GTEST = "PrinterApp.*:CupsQueue.*:WindowsDll.*:GeneratedTables.CheckedInFilesMatchTheirGenerators"
PROGRAM_TIMEOUT = 1200  # seconds per test program; cli_test, the slowest, takes about 60 on an idle machine

# Faults that once went uncaught; every sample carries them.
NAMED = [
    ("src/pipeline/band_driver.cpp", "const+1", "rowUnits = (rowPixels + 7) / 8;", 1,
     "rowUnits = (rowPixels + 8) / 8;"),
    ("cups/page_plan.cpp", "mul/div", "const double sheetWidthDots = sheet.Width * dpi / 72.0;", 1,
     "const double sheetWidthDots = sheet.Width / dpi / 72.0;"),
    ("cli/document.cpp", "drop-stmt", "error_ = TakeVipsError();", 1, ";"),
    ("cli/options.cpp", "drop-stmt", "quoted += '\\'';", 1, ";"),
]

OPERATORS = ("const+1", "const-1", "mul/div", "cmp", "drop-stmt", "drop-arg", "str-char")
INT = re.compile(r"(?<![\w.'])(\d+)(?![\w.'])")
MULDIV = re.compile(r"(?<=\s)([*/])(?=\s)")
CMP = re.compile(r"(?<=\s)(<=|>=|==|!=|<|>)(?=\s)")
CMP_SWAP = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
STRING = re.compile(r'"((?:[^"\\]|\\.)+)"')
STATEMENT = re.compile(r"^\*?[A-Za-z_][\w.:\[\]]*(?:->[\w.:\[\]]+)*\s*(?:\(|[-+*/|&^]?=(?!=)|<<=|>>=|\+\+|--)|^(?:\+\+|--)\w")
PARAMETER = re.compile(r"^\s*(const\s+)?[\w:<>]+[&*]?\s+[&*]?\w+\s*$")  # "const T& name": a declaration
NOT_STATEMENT = re.compile(r"^(return|if|for|while|do|else|case|default|break|continue|goto|using|namespace|"
                           r"struct|class|enum|typedef|template|static_assert|public|private|protected)\b")


def git(*args, cwd=None):
    return subprocess.run(["git", *args], cwd=cwd, check=True, capture_output=True, text=True).stdout


def code_part(line):
    """The line up to a trailing // comment (a line with a string literal is taken whole)."""
    if '"' not in line and "//" in line:
        return line[: line.index("//")]
    return line


def in_string(code, pos):
    return code[:pos].count('"') % 2 == 1


def balanced(text):
    depth = 0
    for c in text:
        depth += c == "("
        depth -= c == ")"
        if depth < 0:
            return False
    return depth == 0


def call_arguments(code, open_paren):
    """(end, [(start, stop) of each top-level argument]) of the call whose '(' is at open_paren, on this line."""
    depth, start, spans, quote = 0, open_paren + 1, [], False
    for i in range(open_paren, len(code)):
        c = code[i]
        if c == '"' and code[i - 1] != "\\":
            quote = not quote
        if quote:
            continue
        if c in "([{":
            depth += 1
        elif c in ")]}":
            depth -= 1
            if depth == 0:
                spans.append((start, i))
                return i, spans
        elif c == "," and depth == 1:
            spans.append((start, i))
            start = i + 1
    return None, []


def mutations(line, previous):
    """Every (operator, mutated stripped line) of one stripped source line."""
    code = code_part(line).rstrip()
    if not code or code.startswith(("#", "//", "/*", "*", "extern \"C\"")) or "static_assert" in code:
        return
    for m in INT.finditer(code):
        if in_string(code, m.start()):
            continue
        n = int(m.group(1))
        yield "const+1", code[: m.start()] + str(n + 1) + code[m.end():]
        yield "const-1", code[: m.start()] + str(n - 1) + code[m.end():]
    for m in MULDIV.finditer(code):
        if not in_string(code, m.start()):
            yield "mul/div", code[: m.start()] + ("/" if m.group(1) == "*" else "*") + code[m.end():]
    for m in CMP.finditer(code):
        if not in_string(code, m.start()):
            yield "cmp", code[: m.start()] + CMP_SWAP[m.group(1)] + code[m.end():]
    starts_statement = previous.endswith((";", "{", "}", ")", ":")) or previous == ""
    if (starts_statement and code.endswith(";") and STATEMENT.match(code) and not NOT_STATEMENT.match(code)
            and balanced(code)):
        yield "drop-stmt", ";"
    for m in re.finditer(r"\w\(", code):
        if in_string(code, m.start()) or code.endswith(("{", ",")):  # a definition, a declaration's first line
            continue
        end, spans = call_arguments(code, m.start() + 1)
        if end is not None and len(spans) >= 2 and not all(PARAMETER.match(code[a:b]) for a, b in spans):
            cut = spans[-2][1]  # from the comma before the last argument to the closing parenthesis
            yield "drop-arg", code[:cut] + code[end:]
    for m in STRING.finditer(code):
        body = m.group(1)
        drop = 2 if body.startswith("\\") and len(body) > 1 else 1
        yield "str-char", code[: m.start(1)] + body[drop:] + code[m.end(1):]


def sources(rev):
    names = git("ls-tree", "-r", "--name-only", rev).split("\n")
    return sorted(n for n in names if n.startswith(ROOTS) and n.endswith((".cpp", ".h")) and "/generated/" not in n)


def mutant_id(file, text, occurrence, mutated):
    return hashlib.sha1(f"{file}\0{text}\0{occurrence}\0{mutated}".encode()).hexdigest()[:8]


def make(file, op, text, occurrence, mutated, named=False):
    m = {"id": mutant_id(file, text, occurrence, mutated), "file": file, "op": op, "text": text,
         "occurrence": occurrence, "mutated": mutated}
    if named:
        m["named"] = True
    return m


def cmd_sample(args):
    sites = {op: [] for op in OPERATORS}
    for file in sources(args.rev):
        seen = {}
        previous = ""
        for raw in git("show", f"{args.rev}:{file}").split("\n"):
            text = raw.strip()
            if text:
                seen[text] = seen.get(text, 0) + 1
                for op, mutated in mutations(text, previous):
                    if mutated != text:
                        sites[op].append(make(file, op, text, seen[text], mutated))
                previous = code_part(text).rstrip()
    rng = random.Random(args.seed)
    chosen = [make(*n, named=True) for n in NAMED]
    ids = {m["id"] for m in chosen}
    for i in range(args.count):
        pool = [m for m in sites[OPERATORS[i % len(OPERATORS)]] if m["id"] not in ids]
        pick = rng.choice(pool)
        ids.add(pick["id"])
        chosen.append(pick)
    with open(args.output, "w") as out:
        out.write(f"# tools/mutants.py sample --seed {args.seed} --count {args.count} (at {git('rev-parse', '--short', args.rev).strip()});"
                  f" sites: {', '.join(f'{op} {len(s)}' for op, s in sites.items())}\n")
        for m in chosen:
            out.write(json.dumps(m) + "\n")
    print(f"{len(chosen)} mutants written to {args.output}")


def load(path):
    with open(path) as f:
        return [json.loads(line) for line in f if line.strip() and not line.startswith("#")]


def apply(tree, m):
    """Writes the mutant into the tree; returns the original content, or None when its line is gone."""
    path = os.path.join(tree, m["file"])
    if not os.path.exists(path):
        return None
    with open(path) as f:
        original = f.read()
    lines = original.split("\n")
    seen = 0
    for i, raw in enumerate(lines):
        if raw.strip() == m["text"]:
            seen += 1
            if seen == m["occurrence"]:
                lines[i] = raw[: len(raw) - len(raw.lstrip())] + m["mutated"]
                with open(path, "w") as f:
                    f.write("\n".join(lines))
                return original
    return None


def objects(build):
    for root, _, files in os.walk(build):
        for f in files:
            if f.endswith(".o"):
                yield os.path.join(root, f)


def code_digest(obj):
    with tempfile.NamedTemporaryFile(suffix=".o") as tmp:
        subprocess.run(["objcopy", "--strip-debug", obj, tmp.name], check=True, capture_output=True)
        return hashlib.sha1(open(tmp.name, "rb").read()).hexdigest()


def fast_targets(build_dir):
    """The test programs the fast tests run (each has its dependencies: the plug-in, the command, the filter)."""
    names = set()
    for root, _, files in os.walk(os.path.join(build_dir, "tests")):
        for f in files:
            path = os.path.join(root, f)
            if f.endswith("_test") and os.access(path, os.X_OK) and f not in ("printer_app_test", "windows_dll_test"):
                names.add(f)
    return sorted(names)


def build(build_dir, log, targets=()):
    cmd = ["cmake", "--build", build_dir, "-j2"]
    for t in targets:
        cmd += ["--target", t]
    r = subprocess.run(cmd, capture_output=True, text=True)
    log.write(r.stdout[-4000:] + r.stderr[-4000:])
    return r.returncode == 0


def fast_tests(build_dir, targets, log, stop_on_failure):
    """Runs each fast test program once (all its fast cases in one process, two programs at a time; a
    process per case would double the time); with stop_on_failure, stops at the first failing case.
    Whether all passed, and the failing cases."""
    programs = []
    for root, _, files in os.walk(os.path.join(build_dir, "tests")):
        programs += [os.path.join(root, f) for f in files if f in targets]
    programs.sort(key=lambda p: (os.path.basename(p) == "cli_test", p))  # the slowest last
    command = ["--gtest_filter=-" + SLOW_GTEST, "--gtest_brief=1"] + (["--gtest_fail_fast"] if stop_on_failure else [])
    failed, running, pending = [], [], list(programs)
    while pending or running:
        while pending and len(running) < 2 and not (failed and stop_on_failure):
            program = pending.pop(0)
            out = tempfile.TemporaryFile(mode="w+")
            running.append((program, subprocess.Popen([program] + command, cwd=os.path.dirname(program), stdout=out,
                                                      stderr=subprocess.STDOUT, start_new_session=True), out, time.time()))
        if not running:
            break
        time.sleep(0.2)
        for entry in list(running):
            program, process, out, started = entry
            timed_out = time.time() - started > PROGRAM_TIMEOUT
            if process.poll() is None and not timed_out and not (failed and stop_on_failure):
                continue
            if process.poll() is None:
                os.killpg(process.pid, 9)
                process.wait()
            running.remove(entry)
            out.seek(0)
            text = out.read()
            if process.returncode != 0 and not (failed and stop_on_failure and not timed_out):
                names = re.findall(r"^\[  FAILED  \] (\S+?)(?:,| \(|$)", text, re.M)
                failed += sorted(set(names)) or [os.path.basename(program) + (" (timed out)" if timed_out else
                                                                                f" (exit {process.returncode})")]
                log.write(text[-4000:])
    return not failed, sorted(set(failed)), ""


def cmd_run(args):
    mutants = load(args.sample)
    if args.only:
        wanted = set(args.only.split(","))
        mutants = [m for m in mutants if m["id"] in wanted]
    rev = git("rev-parse", args.rev).strip()
    tree = os.path.abspath(args.workdir)
    build_dir = os.path.join(tree, "build")
    env_note = "CCACHE_BASEDIR=" + os.environ.get("CCACHE_BASEDIR", "(unset)")
    if os.path.exists(tree):
        if not args.reuse or git("-C", tree, "status", "--porcelain"):
            sys.exit(f"{tree} exists: remove it (git worktree remove --force {tree}), name another --workdir, or "
                     "--reuse it (a clean scratch worktree: the commit is checked out there, its build kept)")
        git("-C", tree, "checkout", "--quiet", "--detach", rev)
    else:
        git("worktree", "add", "--detach", tree, rev)
    log = open(args.report + ".log", "w")
    results = []
    started = time.time()
    try:
        subprocess.run(["cmake", "-S", tree, "-B", build_dir, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                        "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"], check=True, capture_output=True)
        if not build(build_dir, log):
            sys.exit(f"the unmutated {rev[:7]} does not build; see {args.report}.log")
        t0 = time.time()
        targets = fast_targets(build_dir)
        ok, failed, _ = fast_tests(build_dir, targets, log, False)
        baseline_seconds = time.time() - t0
        if not ok:
            sys.exit(f"the unmutated {rev[:7]} fails fast tests {failed}; see {args.report}.log")
        print(f"baseline built and tested ({baseline_seconds:.0f} s of fast tests)", flush=True)
        digests = {o: code_digest(o) for o in objects(build_dir)}
        for n, m in enumerate(mutants, 1):
            t0 = time.time()
            log.write(f"\n==== {m['id']} {m['file']}: {m['text']}  ->  {m['mutated']}\n")
            original = apply(tree, m)
            killers = []
            if original is None:
                outcome = "gone"
            else:
                marker = time.time()
                time.sleep(0.01)
                if not build(build_dir, log, targets):
                    outcome = "stillborn"
                else:
                    rebuilt = [o for o in objects(build_dir) if os.path.getmtime(o) >= marker]
                    if rebuilt and all(digests.get(o) == code_digest(o) for o in rebuilt):
                        outcome = "equivalent"
                    else:
                        ok, killers, _ = fast_tests(build_dir, targets, log, True)
                        outcome = "survived" if ok else "killed"
                with open(os.path.join(tree, m["file"]), "w") as f:
                    f.write(original)
            seconds = time.time() - t0
            results.append(dict(m, outcome=outcome, killers=killers, seconds=round(seconds)))
            print(f"[{n}/{len(mutants)}] {outcome:10} {seconds:4.0f} s  {m['id']} {m['file']}: {m['mutated']}", flush=True)
    finally:
        log.close()
        if not args.keep:
            subprocess.run(["git", "worktree", "remove", "--force", tree], capture_output=True)
    write_report(args, rev, results, time.time() - started, env_note)


def write_report(args, rev, results, seconds, env_note):
    count = {k: sum(r["outcome"] == k for r in results) for k in ("killed", "survived", "equivalent", "stillborn", "gone")}
    scored = count["killed"] + count["survived"]
    score = f"{count['killed']}/{scored} = {100 * count['killed'] / scored:.0f} %" if scored else "n/a"
    with open(args.report, "w") as out:
        out.write(f"# Mutation run of {rev[:7]}, {datetime.datetime.utcnow():%Y-%m-%d %H:%M} UTC\n\n")
        out.write(f"Sample {args.sample} ({len(results)} mutants), {seconds / 60:.0f} min, {env_note}.\n\n")
        out.write(f"Score {score}; " + ", ".join(f"{k} {v}" for k, v in count.items()) + ".\n\n")
        out.write("| id | outcome | operator | file | mutated line | caught by |\n|---|---|---|---|---|---|\n")
        for r in results:
            mark = " (named)" if r.get("named") else ""
            line = r["mutated"].replace("|", "\\|")
            killers = ", ".join(r["killers"][:3]).replace("|", "\\|")
            out.write(f"| {r['id']}{mark} | {r['outcome']} | {r['op']} | {r['file']} | `{line}` | {killers} |\n")
    with open(args.report.rsplit(".", 1)[0] + ".json", "w") as out:
        json.dump(results, out, indent=1)
    print(f"score {score}; report in {args.report}")


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    default_sample = os.path.join(here, "mutants-sample.jsonl")
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = p.add_subparsers(dest="command", required=True)
    s = sub.add_parser("sample", help="draw the sample")
    s.add_argument("--seed", type=int, default=19)
    s.add_argument("--count", type=int, default=8, help="mutants drawn besides the named ones")
    s.add_argument("--rev", default="HEAD")
    s.add_argument("-o", "--output", default=default_sample)
    r = sub.add_parser("run", help="apply, build and test each mutant of a sample")
    r.add_argument("--sample", default=default_sample)
    r.add_argument("--rev", default="HEAD")
    r.add_argument("--workdir", default=os.path.join(os.path.dirname(git("rev-parse", "--show-toplevel").strip()),
                                                      "mutants-scratch"),
                   help="scratch worktree (created, then removed)")
    r.add_argument("--report", default="mutants-report.md")
    r.add_argument("--only", help="comma-separated mutant ids")
    r.add_argument("--keep", action="store_true", help="keep the scratch worktree")
    r.add_argument("--reuse", action="store_true",
                   help="reuse an existing scratch worktree (and its build): the commit is checked out there")
    args = p.parse_args()
    cmd_sample(args) if args.command == "sample" else cmd_run(args)


if __name__ == "__main__":
    main()

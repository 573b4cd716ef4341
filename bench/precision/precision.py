"""Precision of quarry's dead code on real libraries, beside vulture's.

For each library of libraries.py: copy it from its Debian package into a temporary
repository, plant known dead and known live code (plants.py), index it, list all dead code,
run vulture on the same copy, and measure which plants each tool reports; then measure how
many of the library's call sites the index binds on evidence (coverage.py). Prints a
markdown table and writes the details to the results directory.

    precision.py [--only LIB,...] [--keep] [--quarry PATH] [--results DIR]
    precision.py --certain LIB    # the library's own "certain" findings, without plants
"""

import argparse
import json
import os
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time

import coverage
import plants
from libraries import DIST_PACKAGES, LIBRARIES

PAGE = 1000
VULTURE_LINE = re.compile(r"^(.*?):(\d+): unused \w+ '([^']+)' \((\d+)% confidence\)")


def ensure_installed(packages, probe):
    """apt-get installs the packages whose probe path is missing."""
    missing = [p for p in packages if not os.path.exists(probe[p])]
    if missing:
        print(f"installing {' '.join(missing)}", file=sys.stderr)
        subprocess.run(["apt-get", "install", "-y", "-qq", *missing], check=True, stdout=subprocess.DEVNULL)


def copy_library(lib, dest):
    """The library's package directory at the top of `dest`, without bytecode caches."""
    source = os.path.join(DIST_PACKAGES, lib.package)
    target = os.path.join(dest, lib.package)
    if lib.subpackages:
        os.makedirs(target)
        for entry in sorted(os.listdir(source)):
            path = os.path.join(source, entry)
            if entry.endswith(".py"):
                shutil.copy(path, target)
            elif entry in lib.subpackages:
                shutil.copytree(path, os.path.join(target, entry), ignore=shutil.ignore_patterns("__pycache__"))
    else:
        shutil.copytree(source, target, ignore=shutil.ignore_patterns("__pycache__", *lib.exclude))


def parse_floor(quarry, root):
    """Seconds that tree-sitter alone takes to read and parse the tree's Python files (the
    floor under `quarry index`), by bench/parse_floor beside the quarry binary; None when
    that program is missing."""
    program = os.path.join(os.path.dirname(quarry), "bench", "parse_floor")
    if not os.path.exists(program):
        return None
    start = time.monotonic()
    subprocess.run([program, root], check=True, capture_output=True)
    return round(time.monotonic() - start, 2)


def run_quarry(quarry, root):
    """Indexes `root` and returns (seconds, database, every dead-code finding by fqn, and the
    index's own count of how the calls of the repository's names were bound)."""
    db = os.path.join(root, ".quarry", "index.db")
    start = time.monotonic()
    summary = json.loads(
        subprocess.run(
            [quarry, "index", "--json", root], cwd=root, check=True, capture_output=True, text=True
        ).stdout
    )
    seconds = time.monotonic() - start
    return seconds, db, dead_code_findings(quarry, db, root), summary.get("calls")


def dead_code_findings(quarry, db, cwd):
    """Every dead-code finding of the index `db`, by fqn, read a page at a time."""
    findings, offset = {}, 0
    while True:
        out = subprocess.run(
            [quarry, "--db", db, "dead-code", "--json", "--limit", str(PAGE), "--offset", str(offset)],
            cwd=cwd,
            check=True,
            capture_output=True,
            text=True,
        ).stdout
        page = json.loads(out)
        for finding in page["symbols"]:
            findings[finding["fqn"]] = finding
        offset += len(page["symbols"])
        if not page["truncated"] or not page["symbols"]:
            return findings


def run_vulture(root, package):
    """vulture's findings on the copy: (path, line, name) -> confidence."""
    out = subprocess.run(["vulture", package], cwd=root, capture_output=True, text=True).stdout
    found = {}
    for line in out.splitlines():
        m = VULTURE_LINE.match(line)
        if m:
            found[(m[1], int(m[2]), m[3])] = int(m[4])
    return found


def fqn_of(path, qualname):
    module = path[: -len(".py")].replace("/", ".")
    module = module.removesuffix(".__init__")
    return f"{module}.{qualname}"


def index_view(con, fqn):
    """What the index knows of the symbol: its uses, or why it cannot be a candidate."""
    row = con.execute("SELECT id, name, kind, signature, is_export FROM symbols WHERE fqn = ?", (fqn,)).fetchone()
    if row is None:
        return "not in the index", False
    sid, name, kind, signature, exported = row
    uses = con.execute(
        "SELECT u.fqn, e.kind, e.resolution, e.line FROM edges e JOIN symbols u ON u.id = e.source_id "
        "WHERE e.target_id = ? ORDER BY e.resolution IN ('ambiguous', 'model'), e.line",
        (sid,),
    ).fetchall()
    evidence = [use for use in uses if use[2] in coverage.EVIDENCE]
    if uses:
        shown = evidence[:2] or uses[:2]
        text = "; ".join(f"{k} from {u} ({r}, line {line})" for u, k, r, line in shown)
        more = f"; {len(uses) - len(shown)} more" if len(uses) > len(shown) else ""
        label = "used" if evidence else f"only guessed uses ({len(uses)})"
        return f"{label}: {text}{more}", bool(evidence)
    if exported:
        return "no use; exported", False
    if (signature or "").startswith("@"):
        return "no use; decorated", False
    if kind == "method":
        namesakes = con.execute(
            "SELECT COUNT(*) FROM symbols n JOIN edges e ON e.target_id = n.id "
            "WHERE n.name = ? AND n.id != ? AND n.kind = 'method'",
            (name, sid),
        ).fetchone()[0]
        if namesakes:
            return f"no use; another method named {name} is used, so it is never listed", False
    return "no use in the index", False


def measure_plants(lib, root, db, findings, vulture):
    rows = []
    with sqlite3.connect(f"file:{db}?mode=ro", uri=True) as con:
        for plant in plants.plants_of(lib):
            for qualname, line in plants.locate(root, plant).items():
                fqn = fqn_of(plant.path, qualname)
                finding = findings.get(fqn)
                view, bound = index_view(con, fqn)
                rows.append(
                    {
                        "live": plant.live,
                        "way": plant.way,
                        "fqn": fqn,
                        "where": f"{plant.path}:{line}",
                        "quarry": finding["confidence"] if finding else None,
                        "reasons": finding["reasons"] if finding else [],
                        "bound": bound,
                        "index": view,
                        "vulture": vulture.get((plant.path, line, qualname.split(".")[-1])),
                    }
                )
    return rows


def own_files(lib, root):
    """The library's own Python files (relative paths), planted modules left out."""
    files = []
    for path in plants.python_files(os.path.join(root, lib.package)):
        rel = os.path.relpath(path, root)
        if not os.path.basename(rel).startswith("qb_plant_"):
            files.append(rel)
    return files


def count_lines(root, files):
    total = 0
    for rel in files:
        with open(os.path.join(root, rel), "rb") as f:
            total += f.read().count(b"\n")
    return total


def measure(lib, quarry, keep):
    root = tempfile.mkdtemp(prefix=f"quarry-precision-{lib.name}-")
    try:
        copy_library(lib, root)
        plants.plant(lib, root)
        files = own_files(lib, root)
        seconds, db, findings, calls = run_quarry(quarry, root)
        floor = parse_floor(quarry, root)
        vulture = run_vulture(root, lib.package)
        rows = measure_plants(lib, root, db, findings, vulture)
        return {
            "library": lib.name,
            "style": lib.style,
            "files": len(files),
            "lines": count_lines(root, files),
            "index_seconds": round(seconds, 2),
            "parse_floor_seconds": floor,
            "findings": len(findings),
            "plants": rows,
            "coverage": coverage.measure(root, files, db),
            "index_calls": calls,
        }
    finally:
        if keep:
            print(f"{lib.name}: kept {root}", file=sys.stderr)
        else:
            shutil.rmtree(root)


def summary_row(r):
    dead = [p for p in r["plants"] if not p["live"]]
    live = [p for p in r["plants"] if p["live"]]

    def pct(rows, test):
        return f"{100.0 * sum(1 for p in rows if test(p)) / len(rows):.0f}%"

    cov = r["coverage"]
    return [
        r["library"],
        str(r["files"]),
        f"{r['lines']:,}",
        f"{r['index_seconds']:.2f}"
        + (f" ({r['parse_floor_seconds']:.2f})" if r.get("parse_floor_seconds") is not None else ""),
        pct(dead, lambda p: p["quarry"]) + " / " + pct(dead, lambda p: p["vulture"]),
        str(sum(1 for p in live if p["quarry"] == "certain")),
        pct(live, lambda p: p["quarry"] == "likely") + " / " + pct(live, lambda p: p["vulture"]),
        pct(live, lambda p: p["bound"]),
        f"{cov['evidence_pct']:.1f}% / {cov['guessed_pct']:.1f}%",
        index_coverage(r.get("index_calls")),
    ]


def index_coverage(calls):
    """The index's own count: calls bound on evidence (in the repository or, by the
    receiver's type, outside it) and guessed, in % of the calls of the repository's names."""
    if not calls:
        return "n/a"
    total = sum(calls.values())
    if total == 0:
        return "n/a"
    bound = calls["in_repository"] + calls["outside"]
    return (
        f"{100.0 * bound / total:.1f}% ({100.0 * calls['outside'] / total:.1f}% outside) / "
        f"{100.0 * calls['guessed'] / total:.1f}%"
    )


HEADER = [
    "library",
    "files",
    "lines",
    "index s (parse floor s)",
    "dead found quarry / vulture",
    "live certain",
    "live likely quarry / vulture reported",
    "live bound",
    "coverage evidence / guessed",
    "index's count: evidence (outside) / guessed",
]


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "|".join("---" for _ in header) + "|"]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines)


def detail(r):
    """The per-library report: each plant's outcome, and the coverage misses."""
    out = [f"# {r['library']} ({r['style']})", ""]
    out.append(f"{r['files']} files, {r['lines']:,} lines, indexed in {r['index_seconds']} s, {r['findings']} findings.")
    for live in (False, True):
        out += ["", "## " + ("Live plants (must not be reported)" if live else "Dead plants (must be reported)"), ""]
        rows = []
        for p in (p for p in r["plants"] if p["live"] == live):
            quarry = p["quarry"] or "not reported"
            if p["reasons"]:
                quarry += ": " + "; ".join(p["reasons"])
            vulture = f"{p['vulture']}%" if p["vulture"] else "not reported"
            ok = bool(p["quarry"]) != live
            rows.append([p["way"], f"`{p['fqn']}`", p["where"], ("ok" if ok else "MISS"), quarry, vulture, p["index"]])
        out.append(table(["way", "symbol", "where", "quarry result", "quarry says", "vulture", "index"], rows))
    cov = r["coverage"]
    out += ["", "## Binding coverage", ""]
    out.append(
        f"{cov['calls']} call sites of names defined in the repository: {cov['evidence']} bound on evidence "
        f"({cov['evidence_pct']}%), {cov['guessed']} guessed ({cov['guessed_pct']}%), {cov['unbound']} unbound."
    )
    for kind in ("guessed", "unbound"):
        out += ["", f"Most frequent {kind} callee names:", ""]
        out.append(table(["name", "sites", "example"], [[f"`{n}`", str(c), e] for n, c, e in cov["top_misses"][kind]]))
    return "\n".join(out) + "\n"


def certain_dump(lib, quarry, results):
    """The library's own findings marked certain, without plants, as a markdown table."""
    root = tempfile.mkdtemp(prefix=f"quarry-precision-{lib.name}-")
    try:
        copy_library(lib, root)
        _, _, findings, _ = run_quarry(quarry, root)
    finally:
        shutil.rmtree(root)
    certain = sorted((f for f in findings.values() if f["confidence"] == "certain"), key=lambda f: (f["file"], f["line"]))
    text = (
        f"# Certain dead code in {lib.name}, without plants\n\n"
        f"{len(certain)} of {len(findings)} findings; paths are relative to {DIST_PACKAGES}.\n\n"
        + table(["fqn", "kind", "where"], [[f"`{f['fqn']}`", f["kind"], f"{f['file']}:{f['line']}"] for f in certain])
        + "\n"
    )
    path = os.path.join(results, f"{lib.name}-certain.md")
    with open(path, "w", encoding="utf-8") as out:
        out.write(text)
    print(text)
    print(f"written to {path}", file=sys.stderr)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quarry", default=os.path.join(here, "..", "..", "build", "quarry"))
    parser.add_argument("--results", default=os.path.join(here, "..", "..", "build", "precision"))
    parser.add_argument("--only", help="comma-separated library names")
    parser.add_argument("--keep", action="store_true", help="keep the planted copies")
    parser.add_argument("--certain", metavar="LIB", help="dump LIB's certain findings, without plants")
    args = parser.parse_args()
    sys.stdout.reconfigure(line_buffering=True)
    by_name = {lib.name: lib for lib in LIBRARIES}
    chosen = [args.certain] if args.certain else (args.only.split(",") if args.only else list(by_name))
    unknown = [n for n in chosen if n not in by_name]
    if unknown:
        parser.error(f"unknown library {', '.join(unknown)}; known: {', '.join(by_name)}")
    libs = [by_name[n] for n in chosen]
    quarry = os.path.abspath(args.quarry)
    os.makedirs(args.results, exist_ok=True)
    probes = {lib.apt: os.path.join(DIST_PACKAGES, lib.package) for lib in libs}
    probes["vulture"] = "/usr/bin/vulture"
    ensure_installed(list(probes), probes)
    if args.certain:
        certain_dump(libs[0], quarry, args.results)
        return
    results, failed = [], []
    for lib in libs:
        print(f"{lib.name}: copying, planting, indexing, running vulture...", file=sys.stderr)
        try:
            r = measure(lib, quarry, args.keep)
        except subprocess.CalledProcessError as e:
            print(f"{lib.name}: {' '.join(map(str, e.cmd))} failed with status {e.returncode}", file=sys.stderr)
            failed.append(lib.name)
            continue
        results.append(r)
        with open(os.path.join(args.results, f"{lib.name}.md"), "w", encoding="utf-8") as out:
            out.write(detail(r))
    summary = table(HEADER, [summary_row(r) for r in results])
    with open(os.path.join(args.results, "summary.md"), "w", encoding="utf-8") as out:
        out.write(summary + "\n")
    with open(os.path.join(args.results, "results.json"), "w", encoding="utf-8") as out:
        json.dump(results, out, indent=1)
    print(summary)
    print(f"\ndetails in {os.path.abspath(args.results)}", file=sys.stderr)
    if failed:
        sys.exit(f"failed: {', '.join(failed)}")


if __name__ == "__main__":
    main()

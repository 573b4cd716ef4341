"""Precision of quarry's dead code on real JavaScript and TypeScript, beside knip and madge.

For each code base of script_bases.py: fetch its pinned npm packages (`npm pack`) into the
results directory, unpack them into a plain copy (built output and tests left out), copy
that and plant known dead and known live code into the copy (script_plants.py), index both,
list all dead code and the file-level cycles, and measure which plants quarry reports. On
the plain copy, run knip (unused files and exports) and madge (circular imports) from the
pinned peers/ and set their findings beside quarry's. Prints markdown tables and writes the
details to the results directory.

    script_precision.py [--only NAME,...] [--keep] [--quarry PATH] [--results DIR] [--no-peers]
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

import script_plants
from precision import count_lines, dead_code_findings, table
from script_bases import CODE_BASES, COMMON_DROP

HERE = os.path.dirname(os.path.abspath(__file__))
SCRIPT_EXTENSIONS = (".js", ".mjs", ".cjs", ".jsx", ".ts", ".mts", ".cts", ".tsx")
DEFINITION_KINDS = ("function", "class", "method", "interface", "type_alias", "enum")
EVIDENCE = {"exact", "import", "local"}
# The directory names of quarry's test rule.
TEST_DIRECTORIES = {"test", "tests", "testing", "__tests__", "spec", "specs"}


def run(command, cwd=None, check=True):
    return subprocess.run(command, cwd=cwd, check=check, capture_output=True, text=True)


def fetch(spec, tarballs):
    """The tarball of `spec` (name@version) in `tarballs`, packed by npm when missing."""
    name, version = spec.rsplit("@", 1)
    path = os.path.join(tarballs, f"{name.lstrip('@').replace('/', '-')}-{version}.tgz")
    if not os.path.exists(path):
        os.makedirs(tarballs, exist_ok=True)
        run(["npm", "pack", spec, "--pack-destination", tarballs, "--silent"])
    return path


def unpack(base, root, tarballs):
    """A plain copy of the code base at `root`: its packages unpacked, built output and
    tests dropped, and in a workspace a root package.json naming the packages."""
    for package in base.packages:
        dest = os.path.join(root, package.dest)
        os.makedirs(dest, exist_ok=True)
        run(["tar", "xzf", fetch(package.spec, tarballs), "-C", dest, "--strip-components=1"])
    script_plants.drop(root, base.drop + COMMON_DROP)
    if base.workspace:
        manifest = {"name": f"{base.name}-workspace", "private": True, "workspaces": ["packages/*"]}
        with open(os.path.join(root, "package.json"), "w", encoding="utf-8") as out:
            json.dump(manifest, out, indent=2)


def script_files(root):
    files = []
    for directory, dirs, names in os.walk(root):
        dirs[:] = sorted(d for d in dirs if d not in (".quarry", "node_modules"))
        for name in sorted(names):
            if name.endswith(SCRIPT_EXTENSIONS):
                files.append(os.path.relpath(os.path.join(directory, name), root))
    return files


def run_quarry(quarry, root):
    """Indexes `root`: (seconds, database, every dead-code finding by fqn, file cycles)."""
    db = os.path.join(root, ".quarry", "index.db")
    if os.path.exists(db):
        os.remove(db)
    start = time.monotonic()
    run([quarry, "index", "--json", root], cwd=root)
    seconds = time.monotonic() - start
    findings = dead_code_findings(quarry, db, root)
    cycles = json.loads(run([quarry, "--db", db, "cycles", "--level", "file", "--json"], cwd=root).stdout)
    return seconds, db, findings, cycles


def module_of(path):
    return os.path.splitext(path)[0]


def symbol_of(con, path, qualname):
    """(id, fqn, line, is_export) of the definition `qualname` in the file, or None: by
    fqn (module.qualname), else by a fqn that ends with the qualified name."""
    fqn = f"{module_of(path)}.{qualname}"
    row = con.execute(
        "SELECT s.id, s.fqn, s.start_line, s.is_export FROM symbols s JOIN files f ON f.id = s.file_id "
        "WHERE f.path = ? AND s.fqn = ? AND s.kind NOT IN ('import', 'module', 'toplevel')",
        (path, fqn),
    ).fetchone()
    if row is None:
        row = con.execute(
            "SELECT s.id, s.fqn, s.start_line, s.is_export FROM symbols s JOIN files f ON f.id = s.file_id "
            "WHERE f.path = ? AND s.fqn LIKE ? AND s.kind NOT IN ('import', 'module', 'toplevel') "
            "ORDER BY length(s.fqn)",
            (path, "%." + qualname),
        ).fetchone()
    return row


def index_view(con, sid, exported):
    """What the index knows of the symbol's uses, and whether one is bound on evidence."""
    uses = con.execute(
        "SELECT u.fqn, e.kind, e.resolution, e.line FROM edges e JOIN symbols u ON u.id = e.source_id "
        "WHERE e.target_id = ? ORDER BY e.resolution IN ('ambiguous', 'model'), e.line",
        (sid,),
    ).fetchall()
    evidence = [use for use in uses if use[2] in EVIDENCE]
    if uses:
        shown = evidence[:2] or uses[:2]
        text = "; ".join(f"{k} from `{u}` ({r}, line {line})" for u, k, r, line in shown)
        more = f"; {len(uses) - len(shown)} more" if len(uses) > len(shown) else ""
        label = "used" if evidence else f"only guessed uses ({len(uses)})"
        return f"{label}: {text}{more}", bool(evidence)
    return ("no use; exported" if exported else "no use in the index"), False


def measure_plants(base, db, findings):
    rows = []
    with sqlite3.connect(f"file:{db}?mode=ro", uri=True) as con:
        for plant in script_plants.plants_of(base):
            for qualname in plant.qualnames:
                found = symbol_of(con, plant.module, qualname)
                row = {
                    "live": plant.live,
                    "way": plant.way,
                    "kind": plant.kind,
                    "fqn": f"{module_of(plant.module)}.{qualname}",
                    "where": plant.module,
                    "quarry": None,
                    "reasons": [],
                    "bound": False,
                    "index": "not in the index",
                }
                if found:
                    sid, fqn, line, exported = found
                    finding = findings.get(fqn)
                    view, bound = index_view(con, sid, exported)
                    row.update(
                        fqn=fqn,
                        where=f"{plant.module}:{line}",
                        quarry=finding["confidence"] if finding else None,
                        reasons=finding["reasons"] if finding else [],
                        bound=bound,
                        index=view,
                    )
                rows.append(row)
    return rows


def method_namesakes(db, names):
    """How many methods outside the plants bear each name."""
    with sqlite3.connect(f"file:{db}?mode=ro", uri=True) as con:
        return {
            name: con.execute(
                "SELECT COUNT(*) FROM symbols s JOIN files f ON f.id = s.file_id "
                "WHERE s.kind = 'method' AND s.name = ? AND f.path NOT LIKE '%qb_plant_%'",
                (name,),
            ).fetchone()[0]
            for name in names
        }


# --- peers -----------------------------------------------------------------------------


def install_peers(results):
    """knip, madge and typescript as pinned by peers/package-lock.json, in results/peers."""
    peers = os.path.join(results, "peers")
    os.makedirs(peers, exist_ok=True)
    for name in ("package.json", "package-lock.json"):
        source, target = os.path.join(HERE, "peers", name), os.path.join(peers, name)
        if not os.path.exists(target) or open(source).read() != open(target).read():
            shutil.copy(source, target)
            shutil.rmtree(os.path.join(peers, "node_modules"), ignore_errors=True)
    if not os.path.exists(os.path.join(peers, "node_modules", ".package-lock.json")):
        print("installing knip and madge (npm ci)", file=sys.stderr)
        run(["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--silent"], cwd=peers)
    return os.path.join(peers, "node_modules", ".bin")


KNIP_ARGS = ["--reporter", "json", "--no-progress", "--no-exit-code", "--include", "files,exports,types"]


def run_knip(bin_dir, root, base):
    """knip's unused files and unused exports (and exported types) on the copy: (files,
    {(file, name)}). Its configuration, written into the copy, names what it adds to
    knip's defaults."""
    config = os.path.join(root, "knip.json")
    with open(config, "w", encoding="utf-8") as out:
        json.dump(base.knip or {}, out)
    try:
        out = run([os.path.join(bin_dir, "knip"), *KNIP_ARGS], cwd=root).stdout
    finally:
        os.remove(config)
    report = json.loads(out)
    files = set(report.get("files", []))
    exports = set()
    for issue in report.get("issues", []):
        if issue.get("files"):
            files.add(issue["file"])
        for key in ("exports", "types"):
            for item in issue.get(key, []) or []:
                exports.add((issue["file"], item["name"]))
    return sorted(files), exports


def madge_command(bin_dir, base):
    command = [os.path.join(bin_dir, "madge"), "--circular", "--json", "--extensions", "js,jsx,ts,tsx,mjs,cjs"]
    if base.tsconfig:
        command += ["--ts-config", base.tsconfig]
    return command + ["."]


def run_madge(bin_dir, root, base):
    """madge's circular import chains on the copy, each a list of files."""
    out = run(madge_command(bin_dir, base), cwd=root, check=False).stdout
    start = out.find("[")
    return json.loads(out[start:]) if start >= 0 else []


# --- quarry's findings in knip's terms ---------------------------------------------------

EXPORT_LINE = re.compile(r"^\s*export\s")


def exported_names(root, path):
    """The names a CommonJS file exports by module.exports = {...} or exports.x = ..."""
    with open(os.path.join(root, path), encoding="utf-8", errors="replace") as f:
        text = f.read()
    names = set(re.findall(r"\b(?:module\.)?exports\.(\w+)\s*=", text))
    for body in re.findall(r"module\.exports\s*=\s*\{([^}]*)\}", text):
        names.update(re.findall(r"(\w+)\s*(?:[:,]|$)", body))
    single = re.search(r"module\.exports\s*=\s*(\w+)\s*;", text)
    if single:
        names.add(single[1])
    return names


def entry_files(root):
    """The files that the package.json files of the copy name literally as entries (main,
    bin, exports), with the extensions Node would try."""
    entries = set()
    for directory, dirs, names in os.walk(root):
        dirs[:] = [d for d in dirs if d not in (".quarry", "node_modules")]
        if "package.json" not in names:
            continue
        with open(os.path.join(directory, "package.json"), encoding="utf-8") as f:
            manifest = json.load(f)
        values = [manifest.get("main"), manifest.get("bin"), manifest.get("exports")]
        while values:
            value = values.pop()
            if isinstance(value, dict):
                values.extend(value.values())
            elif isinstance(value, list):
                values.extend(value)
            elif isinstance(value, str):
                path = os.path.normpath(os.path.join(os.path.relpath(directory, root), value))
                for candidate in (path, path + ".js", os.path.join(path, "index.js")):
                    if os.path.isfile(os.path.join(root, candidate)):
                        entries.add(candidate)
    return entries


def quarry_unused(root, db, findings):
    """quarry's findings in knip's terms: top-level definitions listed dead that the file
    exports ({(file, name)}), those it does not, and the files that define something of
    which nothing is used from another file and nothing is public. quarry has no query for
    unused files; this reads the index. Files that define nothing (barrels of re-exports)
    are left out: an import through a barrel binds to the definition it re-exports, so the
    index holds no use of the barrel itself. Entry files package.json names are left out."""
    exported, local = set(), set()
    lines = {}
    for f in findings.values():
        if f["kind"] not in DEFINITION_KINDS or f["kind"] == "method":
            continue
        path = f["file"]
        if path not in lines:
            with open(os.path.join(root, path), encoding="utf-8", errors="replace") as src:
                lines[path] = src.read().splitlines()
        text = lines[path][f["line"] - 1] if f["line"] - 1 < len(lines[path]) else ""
        is_export = EXPORT_LINE.match(text) or f["name"] in exported_names(root, path)
        (exported if is_export else local).add((path, f["name"]))
    entries = entry_files(root)
    with sqlite3.connect(f"file:{db}?mode=ro", uri=True) as con:
        unused_files = [
            row[0]
            for row in con.execute(
                "SELECT f.path FROM files f WHERE f.language IN ('javascript', 'typescript') "
                "AND EXISTS (SELECT 1 FROM symbols s WHERE s.file_id = f.id "
                "  AND s.kind NOT IN ('import', 'module', 'toplevel')) "
                "AND NOT EXISTS (SELECT 1 FROM symbols s WHERE s.file_id = f.id AND s.is_export) "
                "AND NOT EXISTS (SELECT 1 FROM symbols s JOIN edges e ON e.target_id = s.id "
                "  JOIN symbols u ON u.id = e.source_id WHERE s.file_id = f.id AND u.file_id != f.id) "
                "ORDER BY f.path"
            )
            if row[0] not in entries
        ]
    return exported, local, unused_files


def knip_only_reason(con, path, name):
    """Why quarry does not list an export knip reports unused, as the index shows it."""
    row = con.execute(
        "SELECT s.id, s.kind, s.is_export FROM symbols s JOIN files f ON f.id = s.file_id "
        "WHERE f.path = ? AND s.name = ? AND s.kind NOT IN ('module', 'toplevel') "
        "ORDER BY s.kind = 'import'",
        (path, name),
    ).fetchone()
    if row is None:
        return "not a definition in the index"
    sid, kind, is_export = row
    if kind == "import":
        return "a re-exported name, not a definition"
    if kind in ("constant", "variable"):
        return "constant or variable: never a dead-code candidate"
    uses = con.execute(
        "SELECT u.file_id = s.file_id, e.resolution FROM edges e JOIN symbols u ON u.id = e.source_id "
        "JOIN symbols s ON s.id = e.target_id WHERE e.target_id = ?",
        (sid,),
    ).fetchall()
    if uses and all(same for same, _ in uses):
        return "used in its own file"
    if uses:
        return "used from another file" + ("" if any(r in EVIDENCE for _, r in uses) else " (guessed)")
    if is_export:
        return "public (an entry exports it)"
    if TEST_DIRECTORIES & set(path.split("/")[:-1]):
        return "in a file quarry's test rule takes for a test (a `testing` directory)"
    return "no use, yet not listed"


def cycle_sets(quarry_cycles, madge_cycles):
    """Files on some cycle, by each tool."""
    q = set()
    for cycle in quarry_cycles:
        q.update(cycle.get("nodes", []))
    m = set()
    for chain in madge_cycles:
        m.update(chain)
    return q, m


def compare(base, root, bin_dir, db, findings, quarry_cycles):
    knip_files, knip_exports = run_knip(bin_dir, root, base)
    madge_cycles = run_madge(bin_dir, root, base)
    q_exports, q_local, q_files = quarry_unused(root, db, findings)
    q_cycle_files, m_cycle_files = cycle_sets(quarry_cycles, madge_cycles)
    with sqlite3.connect(f"file:{db}?mode=ro", uri=True) as con:
        knip_only = {f"{f}:{n}": knip_only_reason(con, f, n) for f, n in sorted(knip_exports - q_exports)}
    return {
        "knip_only_reasons": knip_only,
        "knip_command": "knip " + " ".join(KNIP_ARGS) + f"  (knip.json: {json.dumps(base.knip or {})})",
        "madge_command": " ".join(["madge", *madge_command(bin_dir, base)[1:]]),
        "knip_files": knip_files,
        "quarry_files": q_files,
        "knip_exports": sorted(map(list, knip_exports)),
        "quarry_exports": sorted(map(list, q_exports)),
        "quarry_local": sorted(map(list, q_local)),
        "madge_cycles": madge_cycles,
        "quarry_cycles": quarry_cycles,
        "madge_cycle_files": sorted(m_cycle_files),
        "quarry_cycle_files": sorted(q_cycle_files),
    }


# --- reports ------------------------------------------------------------------------------


def pct(rows, test):
    return f"{100.0 * sum(1 for p in rows if test(p)) / len(rows):.0f}%" if rows else "n/a"


def summary_row(r):
    dead = [p for p in r["plants"] if not p["live"]]
    live = [p for p in r["plants"] if p["live"]]
    return [
        r["name"],
        str(r["files"]),
        f"{r['lines']:,}",
        f"{r['index_seconds']:.2f}",
        f"{sum(1 for p in dead if p['quarry'])}/{len(dead)} ({pct(dead, lambda p: p['quarry'])})",
        str(sum(1 for p in live if p["quarry"] == "certain")),
        f"{sum(1 for p in live if p['quarry'] == 'likely')}/{len(live)} ({pct(live, lambda p: p['quarry'] == 'likely')})",
        pct(live, lambda p: p["bound"]),
    ]


HEADER = ["code base", "files", "lines", "index s", "dead found", "live certain", "live likely", "live bound"]


def total_row(results):
    plants = [p for r in results for p in r["plants"]]
    dead = [p for p in plants if not p["live"]]
    live = [p for p in plants if p["live"]]
    return [
        "**total**",
        str(sum(r["files"] for r in results)),
        f"{sum(r['lines'] for r in results):,}",
        f"{sum(r['index_seconds'] for r in results):.2f}",
        f"{sum(1 for p in dead if p['quarry'])}/{len(dead)} ({pct(dead, lambda p: p['quarry'])})",
        str(sum(1 for p in live if p["quarry"] == "certain")),
        f"{sum(1 for p in live if p['quarry'] == 'likely')}/{len(live)} ({pct(live, lambda p: p['quarry'] == 'likely')})",
        pct(live, lambda p: p["bound"]),
    ]


PEER_HEADER = [
    "code base",
    "unused files knip / quarry (both)",
    "unused exports knip / quarry (both)",
    "knip only, by the index",
    "quarry dead, not exported",
    "files on cycles madge / quarry (both)",
    "cycles madge / quarry",
]


def peer_row(r):
    c = r["peers"]
    kf, qf = set(c["knip_files"]), set(c["quarry_files"])
    ke, qe = set(map(tuple, c["knip_exports"])), set(map(tuple, c["quarry_exports"]))
    mc, qc = set(c["madge_cycle_files"]), set(c["quarry_cycle_files"])
    reasons = list(c["knip_only_reasons"].values())
    why = ", ".join(
        f"{sum(1 for x in reasons if x.startswith(k))} {label}"
        for k, label in (("used in its own", "used in own file"), ("constant", "constants"), ("public", "public"),
                         ("used from", "used elsewhere"), ("a re-export", "re-exports"), ("in a file", "in tests"))
        if any(x.startswith(k) for x in reasons)
    )
    return [
        r["name"],
        f"{len(kf)} / {len(qf)} ({len(kf & qf)})",
        f"{len(ke)} / {len(qe)} ({len(ke & qe)})",
        why or "-",
        str(len(c["quarry_local"])),
        f"{len(mc)} / {len(qc)} ({len(mc & qc)})",
        f"{len(c['madge_cycles'])} chains / {len(c['quarry_cycles'])} sets",
    ]


def detail(r):
    out = [f"# {r['name']} ({r['style']})", ""]
    out.append(
        f"{', '.join(r['packages'])}; {r['files']} script files, {r['lines']:,} lines; planted copy indexed in "
        f"{r['index_seconds']} s, {r['findings']} findings. Typed-receiver method names and how many methods "
        f"of the code base bear them: {', '.join(f'`{k}` {v}' for k, v in r['namesakes'].items())}."
    )
    for live in (False, True):
        out += ["", "## " + ("Live plants (must not be reported)" if live else "Dead plants (must be reported)"), ""]
        rows = []
        for p in (p for p in r["plants"] if p["live"] == live):
            quarry = p["quarry"] or "not reported"
            if p["reasons"]:
                quarry += ": " + "; ".join(p["reasons"])
            ok = bool(p["quarry"]) != live
            rows.append([p["way"], f"`{p['fqn']}`", p["where"], "ok" if ok else "MISS", quarry, p["index"]])
        out.append(table(["way", "symbol", "where", "result", "quarry says", "index"], rows))
    c = r.get("peers")
    if c:
        out += ["", "## Peers, on the plain copy", "", f"- knip: `{c['knip_command']}`", f"- madge: `{c['madge_command']}`"]
        kf, qf = set(c["knip_files"]), set(c["quarry_files"])
        out += ["", "### Unused files", ""]
        out.append(table(["file", "knip", "quarry"], [[f"`{f}`", yes(f in kf), yes(f in qf)] for f in sorted(kf | qf)]))
        ke, qe = set(map(tuple, c["knip_exports"])), set(map(tuple, c["quarry_exports"]))
        out += ["", "### Unused exports (knip: exports and types; quarry: exported top-level definitions listed dead)", ""]
        reasons = c["knip_only_reasons"]
        out.append(
            table(
                ["file", "name", "knip", "quarry", "why quarry does not list it (from the index)"],
                [
                    [f"`{f}`", f"`{n}`", yes((f, n) in ke), yes((f, n) in qe), reasons.get(f"{f}:{n}", "")]
                    for f, n in sorted(ke | qe)
                ],
            )
        )
        out += ["", "### Cycles", "", "madge:", ""]
        out += [f"- {' -> '.join(chain)}" for chain in c["madge_cycles"]] or ["- none"]
        out += ["", "quarry (`cycles --level file`):", ""]
        out += [f"- {len(cy['nodes'])} files: {' -> '.join(cy.get('cycle', []))}" for cy in c["quarry_cycles"]] or ["- none"]
    return "\n".join(out) + "\n"


def yes(flag):
    return "yes" if flag else "-"


def measure(base, quarry, results, bin_dir, keep):
    """Fetches, copies, plants and measures one code base. The copies live in a temporary
    directory outside any git work tree: quarry and knip leave out what an enclosing
    work tree ignores, and the results directory usually is one (build/)."""
    work = tempfile.mkdtemp(prefix=f"quarry-scripts-{base.name}-")
    try:
        return measure_in(base, quarry, results, bin_dir, work)
    finally:
        if keep:
            print(f"{base.name}: kept {work}", file=sys.stderr)
        else:
            shutil.rmtree(work)


def measure_in(base, quarry, results, bin_dir, work):
    tarballs = os.path.join(results, "tarballs")
    plain, planted = os.path.join(work, "plain"), os.path.join(work, "planted")
    unpack(base, plain, tarballs)
    shutil.copytree(plain, planted)
    script_plants.plant(base, planted)
    files = script_files(plain)
    seconds, db, findings, _ = run_quarry(quarry, planted)
    r = {
        "name": base.name,
        "style": base.style,
        "packages": [p.spec for p in base.packages],
        "files": len(files),
        "lines": count_lines(plain, files),
        "index_seconds": round(seconds, 2),
        "findings": len(findings),
        "plants": measure_plants(base, db, findings),
        "namesakes": method_namesakes(db, base.methods),
    }
    if bin_dir:
        _, plain_db, plain_findings, plain_cycles = run_quarry(quarry, plain)
        r["plain_findings"] = len(plain_findings)
        r["peers"] = compare(base, plain, bin_dir, plain_db, plain_findings, plain_cycles)
    return r


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quarry", default=os.path.join(HERE, "..", "..", "build", "quarry"))
    parser.add_argument("--results", default=os.path.join(HERE, "..", "..", "build", "precision"))
    parser.add_argument("--only", help="comma-separated code base names")
    parser.add_argument("--no-peers", action="store_true", help="do not run knip and madge")
    parser.add_argument("--keep", action="store_true", help="keep the plain and planted copies")
    args = parser.parse_args()
    sys.stdout.reconfigure(line_buffering=True)
    by_name = {base.name: base for base in CODE_BASES}
    chosen = args.only.split(",") if args.only else list(by_name)
    unknown = [n for n in chosen if n not in by_name]
    if unknown:
        parser.error(f"unknown code base {', '.join(unknown)}; known: {', '.join(by_name)}")
    quarry = os.path.abspath(args.quarry)
    results_dir = os.path.abspath(args.results)
    os.makedirs(results_dir, exist_ok=True)
    bin_dir = None if args.no_peers else install_peers(results_dir)
    results, failed = [], []
    for name in chosen:
        print(f"{name}: fetching, planting, indexing{'' if args.no_peers else ', running knip and madge'}...", file=sys.stderr)
        try:
            r = measure(by_name[name], quarry, results_dir, bin_dir, args.keep)
        except subprocess.CalledProcessError as e:
            print(f"{name}: {' '.join(map(str, e.cmd))} failed with status {e.returncode}\n{e.stderr}", file=sys.stderr)
            failed.append(name)
            continue
        results.append(r)
        with open(os.path.join(results_dir, f"scripts-{name}.md"), "w", encoding="utf-8") as out:
            out.write(detail(r))
    summary = table(HEADER, [summary_row(r) for r in results] + ([total_row(results)] if len(results) > 1 else []))
    if bin_dir:
        summary += "\n\n" + table(PEER_HEADER, [peer_row(r) for r in results])
    with open(os.path.join(results_dir, "scripts-summary.md"), "w", encoding="utf-8") as out:
        out.write(summary + "\n")
    with open(os.path.join(results_dir, "scripts-results.json"), "w", encoding="utf-8") as out:
        json.dump(results, out, indent=1)
    print(summary)
    print(f"\ndetails in {results_dir}/scripts-*.md", file=sys.stderr)
    if failed:
        sys.exit(f"failed: {', '.join(failed)}")


if __name__ == "__main__":
    main()

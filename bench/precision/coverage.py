"""Binding coverage: how many of a library's call sites the index binds on evidence.

A call site is an `ast.Call` whose callee is a name (`f(...)`) or an attribute
(`x.f(...)`), the callee's name being `f`. Only call sites whose name some class or function
of the repository bears are counted: a call of `len` or of `os.path.join` names nothing the
index could bind. Each counted site is matched with the index's call edges from a symbol of
the same file, at the same line, to a symbol of the same name:

- evidence: one such edge is bound on evidence (resolution exact, import or local);
- guessed: such edges exist, all of them guesses (ambiguous, model);
- unbound: no such edge.

A call of the enclosing function by its own name that has no edge is its recursion, which
the index binds without an edge: such sites are left out.

The index records a call at the line where the call expression starts, the first line of
its callee (`f(\\n x)` and `(f\\n (x))` both start at f's line), which is what `ast` gives as
the Call's `lineno`. A decorator written as a call (`@app.route("/")`) is recorded as a
`decorates` edge, so those count as well.
"""

import ast
import os
import sqlite3
from collections import Counter, defaultdict

from plants import parse, python_files

EVIDENCE = {"exact", "import", "local"}
GUESSED = {"ambiguous", "model"}


def defined_names(root):
    names = set()
    for path in python_files(root):
        for node in ast.walk(parse(path)):
            if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef, ast.ClassDef)):
                names.add(node.name)
    return names


def call_sites(path):
    """(line, callee name, whether it calls the enclosing function by its own name: `f()` in
    `f`, `self.f()` or `cls.f()` in method `f`) of each call by name or attribute in the
    file."""
    stack = [(parse(path), None)]
    while stack:
        node, enclosing = stack.pop()
        if isinstance(node, ast.Call):
            func = node.func
            if isinstance(func, ast.Name):
                yield node.lineno, func.id, func.id == enclosing
            elif isinstance(func, ast.Attribute):
                on_self = isinstance(func.value, ast.Name) and func.value.id in ("self", "cls")
                yield node.lineno, func.attr, on_self and func.attr == enclosing
        if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef)):
            enclosing = node.name
        elif isinstance(node, ast.ClassDef):
            enclosing = None
        stack.extend((child, enclosing) for child in ast.iter_child_nodes(node))


def edge_resolutions(db):
    """(file path, line, target name) -> resolutions of the call edges recorded there."""
    found = defaultdict(set)
    with sqlite3.connect(f"file:{db}?mode=ro", uri=True) as con:
        rows = con.execute(
            "SELECT f.path, e.line, t.name, e.resolution FROM edges e "
            "JOIN symbols s ON s.id = e.source_id JOIN files f ON f.id = s.file_id "
            "JOIN symbols t ON t.id = e.target_id "
            "WHERE e.kind IN ('call', 'decorates') AND e.line IS NOT NULL"
        )
        for path, line, name, resolution in rows:
            found[(path, line, name)].add(resolution)
    return found


def classify(resolutions):
    if resolutions & EVIDENCE:
        return "evidence"
    if resolutions & GUESSED:
        return "guessed"
    return "unbound"


def measure(root, own_files, db):
    """Coverage of the call sites in `own_files` (paths relative to `root`): counts per class
    and, for the guessed and unbound sites, the most frequent callee names with one
    example site each."""
    names = defined_names(root)
    edges = edge_resolutions(db)
    counts = Counter()
    misses = {"guessed": Counter(), "unbound": Counter()}
    example = {}
    for rel in own_files:
        for line, name, own in call_sites(os.path.join(root, rel)):
            if name not in names:
                continue
            resolutions = edges.get((rel, line, name), set())
            if own and not resolutions:
                continue  # a function's recursion: bound, but it makes no edge
            kind = classify(resolutions)
            counts[kind] += 1
            if kind != "evidence":
                misses[kind][name] += 1
                example.setdefault((kind, name), f"{rel}:{line}")
    total = sum(counts.values())
    return {
        "calls": total,
        "evidence": counts["evidence"],
        "guessed": counts["guessed"],
        "unbound": counts["unbound"],
        "evidence_pct": percent(counts["evidence"], total),
        "guessed_pct": percent(counts["guessed"], total),
        "top_misses": {
            kind: [(name, n, example[(kind, name)]) for name, n in misses[kind].most_common(12)]
            for kind in misses
        },
    }


def percent(part, whole):
    return round(100.0 * part / whole, 1) if whole else 0.0

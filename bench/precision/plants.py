"""Plants known dead and known live code into a copy of a library.

The planted modules live in the library's top package. Their live code is reached from
something live for real: the package's `__init__.py` imports the driver module and calls
`qb_drive()` at import time, and the driver uses every live plant in one way each. The dead
plants sit beside them in modules that are imported, plus one method added to a class of the
library itself.
"""

import ast
import os
from dataclasses import dataclass
from string import Template

# One planted module per entry: file name -> source, with $pkg (the top package) and $m1,
# $m2, $m3 (the method names of the library's entry) filled in.
MODULES = {
    "qb_plant_core.py": '''\
"""Planted: functions used from another module, and dead code beside them."""


def qb_imported():
    return 1


def qb_via_module():
    return 2


def qb_dead_function():
    return 3


class QbDeadClass:
    def __init__(self):
        self.value = 4


def qb_dead_chain_outer():
    return qb_dead_chain_inner() + 1


def qb_dead_chain_inner():
    return 5


def qb_dead_recursive(n):
    return qb_dead_recursive(n - 1) if n else 0
''',
    "qb_plant_base.py": '''\
"""Planted: a base class whose method a subclass calls on self."""


class QbBase:
    def $m1(self):
        return 6
''',
    "qb_plant_child.py": '''\
"""Planted: the subclass, in another module."""

from $pkg.qb_plant_base import QbBase


class QbChild(QbBase):
    def qb_start(self):
        return self.$m1()
''',
    "qb_plant_reexport.py": '''\
"""Planted: a function re-exported by the package's __init__."""


def qb_reexported():
    return 7
''',
    "qb_plant_lazy.py": '''\
"""Planted: a function imported inside a function body."""


def qb_lazily_imported():
    return 8
''',
    "qb_plant_values.py": '''\
"""Planted: functions and classes used as values, in types and through attributes."""

import functools


def qb_callback_in_dict():
    return 9


def qb_callback_as_argument():
    return 10


def qb_partial_target(a, b):
    return a + b


QB_CALLBACKS = {"default": qb_callback_in_dict}


def qb_apply(callback):
    return callback()


def qb_use_callbacks():
    first = QB_CALLBACKS["default"]()
    second = qb_apply(qb_callback_as_argument)
    third = functools.partial(qb_partial_target, 1)(2)
    return first, second, third


class QbOnlyInIsinstance:
    pass


class QbOnlyInAnnotation:
    pass


def qb_check(value) -> bool:
    return isinstance(value, QbOnlyInIsinstance)


def qb_annotated(value: QbOnlyInAnnotation) -> None:
    return None


class QbHelper:
    def $m2(self):
        return 11


class QbOwner:
    def __init__(self):
        self.helper = QbHelper()

    def qb_use_helper(self):
        return self.helper.$m2()


class QbService:
    def $m3(self):
        return 12


def qb_call_service(service: QbService):
    return service.$m3()


class QbFresh:
    def $m1(self):
        return 16


class QbRunner:
    def qb_dispatch(self, kind):
        return getattr(self, "_run_" + kind)()

    def _run_qb_fast(self):
        return 13

    def _run_qb_slow(self):
        return 14

    def _run_qb_full(self):
        return 15
''',
    "qb_plant_registry.py": '''\
"""Planted: a registry of classes named by strings, loaded with importlib."""

import importlib

QB_REGISTRY = {"plugin": ("$pkg.qb_plant_plugin", "QbRegisteredPlugin")}


def qb_load(key):
    module_name, class_name = QB_REGISTRY[key]
    return getattr(importlib.import_module(module_name), class_name)
''',
    "qb_plant_plugin.py": '''\
"""Planted: a class that only the registry names, never imported."""


class QbRegisteredPlugin:
    pass
''',
    "qb_plant_driver.py": '''\
"""Planted: uses every live plant; the package's __init__ calls qb_drive()."""

from $pkg import qb_plant_core
from $pkg import qb_reexported
from $pkg.qb_plant_child import QbChild
from $pkg.qb_plant_core import qb_imported
from $pkg.qb_plant_registry import qb_load
from $pkg.qb_plant_values import (
    QbFresh,
    QbOwner,
    QbRunner,
    QbService,
    qb_annotated,
    qb_call_service,
    qb_check,
    qb_use_callbacks,
)


def qb_drive():
    child = QbChild()
    owner = QbOwner()
    runner = QbRunner()
    results = [
        qb_imported(),
        qb_plant_core.qb_via_module(),
        child.qb_start(),
        qb_reexported(),
        qb_use_callbacks(),
        qb_check(None),
        qb_annotated(None),
        owner.qb_use_helper(),
        qb_call_service(QbService()),
        qb_load("plugin"),
        runner.qb_dispatch("fast"),
        runner.qb_dispatch("slow"),
        runner.qb_dispatch("full"),
        QbFresh().$m1(),
    ]
    from $pkg.qb_plant_lazy import qb_lazily_imported

    results.append(qb_lazily_imported())
    return results
''',
}

INIT_SUFFIX = """

# Planted by quarry's precision benchmark.
from $pkg.qb_plant_reexport import qb_reexported  # noqa: E402
from $pkg import qb_plant_driver as _qb_plant_driver  # noqa: E402

_qb_plant_driver.qb_drive()
"""

HOST_METHOD = "qb_dead_method"


@dataclass(frozen=True)
class Plant:
    live: bool
    way: str  # how it is used (live) or what it is (dead)
    path: str  # file relative to the copy's root
    qualnames: tuple[str, ...]  # the symbols that must (live) or must not (dead) be used


def plants_of(lib):
    """The plants of `lib`, measured symbol by symbol. The inner end of the dead chain is not
    measured: it is used, by dead code."""
    m1, m2, m3 = lib.methods

    def at(module):
        return f"{lib.package}/{module}.py"

    core, values = at("qb_plant_core"), at("qb_plant_values")
    return [
        Plant(False, "module-level function", core, ("qb_dead_function",)),
        Plant(False, "class", core, ("QbDeadClass",)),
        Plant(False, "method of a live library class", lib.host[0], (f"{lib.host[1]}.{HOST_METHOD}",)),
        Plant(False, "outer end of a dead chain", core, ("qb_dead_chain_outer",)),
        Plant(False, "function used only by its own recursive call", core, ("qb_dead_recursive",)),
        Plant(True, "from pkg.m import f; f()", core, ("qb_imported",)),
        Plant(True, "module.f()", core, ("qb_via_module",)),
        Plant(True, f"inherited self.{m1}()", at("qb_plant_base"), (f"QbBase.{m1}",)),
        Plant(True, "re-exported by the package __init__", at("qb_plant_reexport"), ("qb_reexported",)),
        Plant(True, "import inside a function", at("qb_plant_lazy"), ("qb_lazily_imported",)),
        Plant(True, "callback stored in a dict", values, ("qb_callback_in_dict",)),
        Plant(True, "callback passed as an argument", values, ("qb_callback_as_argument",)),
        Plant(True, "functools.partial(f, ...)", values, ("qb_partial_target",)),
        Plant(True, "class only in isinstance()", values, ("QbOnlyInIsinstance",)),
        Plant(True, "class only in an annotation", values, ("QbOnlyInAnnotation",)),
        Plant(True, f"self.helper.{m2}(), helper made in __init__", values, (f"QbHelper.{m2}",)),
        Plant(True, f"param.{m3}() on an annotated parameter", values, (f"QbService.{m3}",)),
        Plant(True, f"QbFresh().{m1}() on a fresh instance", values, (f"QbFresh.{m1}",)),
        Plant(True, "string registry + importlib + getattr", at("qb_plant_plugin"), ("QbRegisteredPlugin",)),
        Plant(
            True,
            'getattr(self, "_run_" + kind)()',
            values,
            ("QbRunner._run_qb_fast", "QbRunner._run_qb_slow", "QbRunner._run_qb_full"),
        ),
        Plant(
            True,
            "plumbing, called directly",
            values,
            (
                "qb_apply",
                "qb_use_callbacks",
                "qb_check",
                "qb_annotated",
                "QbHelper",
                "QbOwner",
                "QbOwner.qb_use_helper",
                "QbService",
                "qb_call_service",
                "QbRunner",
                "QbRunner.qb_dispatch",
                "QbFresh",
            ),
        ),
        Plant(True, "plumbing, called directly", at("qb_plant_child"), ("QbChild", "QbChild.qb_start")),
        Plant(True, "plumbing, called directly", at("qb_plant_base"), ("QbBase",)),
        Plant(True, "plumbing, called directly", at("qb_plant_registry"), ("qb_load",)),
        Plant(True, "plumbing, called by the package __init__", at("qb_plant_driver"), ("qb_drive",)),
    ]


def method_counts(root):
    """How many methods of each name the Python files under `root` define."""
    counts = {}
    for path in python_files(root):
        for node in ast.walk(parse(path)):
            if isinstance(node, ast.ClassDef):
                for item in node.body:
                    if isinstance(item, (ast.FunctionDef, ast.AsyncFunctionDef)):
                        counts[item.name] = counts.get(item.name, 0) + 1
    return counts


def plant(lib, root):
    """Writes the planted modules into the copy at `root`, appends the driver call to the
    package's __init__ and adds the dead method to the host class. Call it on a copy without
    plants: it checks the method names first."""
    counts = method_counts(root)
    for name in lib.methods:
        if counts.get(name, 0) < 2:
            raise SystemExit(f"{lib.name}: method name {name!r} is defined {counts.get(name, 0)} times, want 2 or more")
    m1, m2, m3 = lib.methods
    fill = {"pkg": lib.package, "m1": m1, "m2": m2, "m3": m3}
    package_dir = os.path.join(root, lib.package)
    for name, text in MODULES.items():
        with open(os.path.join(package_dir, name), "w", encoding="utf-8") as out:
            out.write(Template(text).substitute(fill))
    with open(os.path.join(package_dir, "__init__.py"), "a", encoding="utf-8") as out:
        out.write(Template(INIT_SUFFIX).substitute(fill))
    add_host_method(os.path.join(root, lib.host[0]), lib.host[1])


def add_host_method(path, class_name):
    """Inserts a method nobody calls after the last statement of the top-level class."""
    with open(path, encoding="utf-8") as f:
        lines = f.read().splitlines(keepends=True)
    tree = ast.parse("".join(lines))
    cls = next(n for n in tree.body if isinstance(n, ast.ClassDef) and n.name == class_name)
    indent = " " * cls.body[0].col_offset
    method = [
        "\n",
        f"{indent}def {HOST_METHOD}(self):\n",
        f'{indent}    """Planted: a method nothing calls."""\n',
        f"{indent}    return None\n",
    ]
    lines[cls.end_lineno : cls.end_lineno] = method
    with open(path, "w", encoding="utf-8") as f:
        f.write("".join(lines))


def locate(root, plant_):
    """The start line of each of the plant's symbols, by qualified name (Class.method)."""
    tree = parse(os.path.join(root, plant_.path))
    lines = {}
    stack = [(tree, "")]
    while stack:
        node, prefix = stack.pop()
        for child in node.body:
            if isinstance(child, (ast.FunctionDef, ast.AsyncFunctionDef, ast.ClassDef)):
                qualname = prefix + child.name
                lines[qualname] = child.lineno
                if isinstance(child, ast.ClassDef):
                    stack.append((child, qualname + "."))
    return {q: lines[q] for q in plant_.qualnames}


def python_files(root):
    for directory, dirs, files in os.walk(root):
        dirs[:] = sorted(d for d in dirs if d not in ("__pycache__", ".quarry"))
        for name in sorted(files):
            if name.endswith(".py"):
                yield os.path.join(directory, name)


def parse(path):
    with open(path, encoding="utf-8") as f:
        return ast.parse(f.read(), filename=path)

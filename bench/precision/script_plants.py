"""Plants known dead and known live code into a copy of a JavaScript or TypeScript code base.

The planted modules (`qb_plant_*`) sit beside the code base's entry file, whose top level
imports the planted driver and calls `qbDrive()`, and re-exports one plant: the live plants
hang from code that runs when the package is loaded, and the driver uses each one in one
way. The dead plants sit in the same modules. In a workspace, a second site in another
package holds plants that the driver imports by that package's name.

TypeScript sites (`ts`, `tsx`) and CommonJS sites (`cjs`) get their own modules; `tsx`
sites add a component used as a JSX element.
"""

import glob
import json
import os
import re
import shutil
from dataclasses import dataclass
from string import Template

BANNER = "// Planted by quarry's precision benchmark.\n"

TS_MODULES = {
    "qb_plant_core.ts": """\
// Planted: functions used from other modules, and dead code of every kind beside them.
export function qbImported(): number {
  return 1;
}

export function qbViaNamespace(): number {
  return 2;
}

export function qbDeadExported(): number {
  return 3;
}

function qbDeadLocal(): number {
  return 4;
}

export class QbDeadClass {
  qbValue = 5;
}

export function qbDeadChainOuter(): number {
  return qbDeadChainInner() + 1;
}

function qbDeadChainInner(): number {
  return 6;
}

export const qbDeadArrow = (): number => 7;

export const qbDeadFunctionExpression = function (): number {
  return 8;
};

export interface QbDeadInterface {
  qbField: number;
}

export type QbDeadAlias = { qbOther: string };

export enum QbDeadEnum {
  First,
  Second,
}

export function qbDeadRecursive(n: number): number {
  return n <= 0 ? 0 : qbDeadRecursive(n - 1);
}
""",
    "qb_plant_default.ts": """\
// Planted: a function only a default import names.
export default function qbDefaultImported(): number {
  return 10;
}
""",
    "qb_plant_values.ts": """\
// Planted: an arrow function and a function expression bound to constants.
export const qbArrowImported = (): number => 11;

export const qbFunctionExpressionImported = function (): number {
  return 12;
};
""",
    "qb_plant_reexport.ts": """\
// Planted: a function the barrel re-exports by name.
export function qbReexported(): number {
  return 13;
}
""",
    "qb_plant_star.ts": """\
// Planted: a function the barrel re-exports with export *.
export function qbStarExported(): number {
  return 14;
}
""",
    "qb_plant_barrel.ts": """\
// Planted: a barrel module between the driver and two definitions.
export { qbReexported } from './qb_plant_reexport';
export * from './qb_plant_star';
""",
    "qb_plant_public.ts": """\
// Planted: a function the entry file re-exports, so public.
export function qbPublic(): number {
  return 15;
}
""",
    "qb_plant_public_star.ts": """\
// Planted: a function the entry file re-exports with export *, so public.
export function qbPublicStar(): number {
  return 19;
}
""",
    "qb_plant_dynamic.ts": """\
// Planted: a function reached through a dynamic import.
export function qbDynamicallyImported(): number {
  return 16;
}
""",
    "qb_plant_awaited.ts": """\
// Planted: a function reached through an awaited dynamic import.
export function qbAwaitImported(): number {
  return 17;
}
""",
    "qb_plant_namespace_value.ts": """\
// Planted: a function only reached through its module's namespace object, passed as a value.
export function qbThroughNamespaceValue(): number {
  return 18;
}
""",
    "qb_plant_types.ts": """\
// Planted: an interface, type aliases and an enum, each used in one way.
export interface QbShape {
  qbArea(): number;
}

export interface QbImplementedOnly {
  readonly qbTag?: string;
}

export type QbOptions = { qbSize: number };

export enum QbKind {
  One = 1,
  Two = 2,
}
""",
    "qb_plant_classes.ts": """\
// Planted: classes whose methods are called on receivers of known type.
import type { QbImplementedOnly, QbShape } from './qb_plant_types';

export class QbBase {
  $m1(): number {
    return 20;
  }
}

export class QbChild extends QbBase {
  qbStart(): number {
    return this.$m1();
  }
}

export class QbSquare implements QbShape, QbImplementedOnly {
  qbArea(): number {
    return 21;
  }
}

export class QbHelper {
  $m2(): number {
    return 22;
  }
}

export class QbOwner {
  private helper = new QbHelper();

  qbUseHelper(): number {
    return this.helper.$m2();
  }
}

export class QbService {
  $m3(): number {
    return 23;
  }
}

export function qbMakeService(): QbService {
  return new QbService();
}

export class QbFresh {
  $m1(): number {
    return 24;
  }

  qbDeadMethod(): number {
    return 25;
  }
}
""",
    "qb_plant_callbacks.ts": """\
// Planted: functions passed as values, and the methods of an object literal.
function qbCallbackArgument(): number {
  return 30;
}

function qbMapper(value: number): number {
  return value + 31;
}

function qbApply(callback: () => number): number {
  return callback();
}

export const qbHandlers = {
  qbOnLive(): number {
    return 32;
  },
  qbOnDead(): number {
    return 33;
  },
};

export function qbUseCallbacks(): number[] {
  return [qbApply(qbCallbackArgument), ...[1, 2].map(qbMapper), qbHandlers.qbOnLive()];
}
""",
}

TSX_MODULES = {
    "qb_plant_view.tsx": """\
// Planted: a component used only as a JSX element, and one nothing renders.
export function QbBadge(props: { label: string }) {
  return <span>{props.label}</span>;
}

export function QbDeadBadge() {
  return <span />;
}
""",
}

TS_DRIVER = """\
// Planted: uses every live plant; the entry file calls qbDrive() at load.
import { qbImported } from './qb_plant_core';
import * as qbCore from './qb_plant_core';
import qbDefaultImported from './qb_plant_default';
import { qbArrowImported, qbFunctionExpressionImported } from './qb_plant_values';
import { qbReexported, qbStarExported } from './qb_plant_barrel';
import { QbChild, QbFresh, QbOwner, QbService, QbSquare, qbMakeService } from './qb_plant_classes';
import type { QbOptions, QbShape } from './qb_plant_types';
import { QbKind } from './qb_plant_types';
import { qbUseCallbacks } from './qb_plant_callbacks';
import * as qbNamespaceValue from './qb_plant_namespace_value';
$imports
function qbCallThrough(table: { qbThroughNamespaceValue(): number }): number {
  return table.qbThroughNamespaceValue();
}

export async function qbAwaitDynamic(): Promise<number> {
  const module = await import('./qb_plant_awaited');
  return module.qbAwaitImported();
}

export function qbDrive(options: QbOptions): unknown[] {
  const service: QbService = qbMakeService();
  const shape: QbShape = new QbSquare();
  return [
    qbImported(),
    qbCore.qbViaNamespace(),
    qbDefaultImported(),
    qbArrowImported(),
    qbFunctionExpressionImported(),
    qbReexported(),
    qbStarExported(),
    new QbChild().qbStart(),
    new QbFresh().$m1(),
    new QbOwner().qbUseHelper(),
    service.$m3(),
    shape.qbArea(),
    options.qbSize,
    QbKind.One,
    qbUseCallbacks(),
    import('./qb_plant_dynamic').then((m) => m.qbDynamicallyImported()),
    qbCallThrough(qbNamespaceValue),
    qbAwaitDynamic(),$uses
  ];
}
"""

TS_ENTRY = """
${banner}\
export { qbPublic } from './qb_plant_public';
export * from './qb_plant_public_star';
import { qbDrive } from './qb_plant_driver';

qbDrive({ qbSize: 1 });
"""

# The second site of a workspace: a class and a function the first site's driver imports by
# the package's name, through the package's entry file.
SHARED_MODULE = """\
// Planted: code another workspace package imports by this package's name.
export function qbShared(): number {
  return 40;
}

export class QbSharedClient {
  qbFetch(): number {
    return 41;
  }
}

export function qbSharedDead(): number {
  return 42;
}
"""

SHARED_ENTRY = """
${banner}\
export { qbShared, QbSharedClient } from './qb_plant_shared';
"""

CJS_MODULES = {
    "qb_plant_core.js": """\
// Planted: functions used from other modules, and dead code of every kind beside them.
function qbRequiredDestructured() {
  return 1;
}

function qbViaModule() {
  return 2;
}

function qbViaRequireProperty() {
  return 3;
}

function qbDeadExported() {
  return 4;
}

function qbDeadLocal() {
  return 5;
}

class QbDeadClass {
  constructor() {
    this.qbValue = 6;
  }
}

function qbDeadChainOuter() {
  return qbDeadChainInner() + 1;
}

function qbDeadChainInner() {
  return 7;
}

const qbDeadArrow = () => 8;

const qbDeadFunctionExpression = function () {
  return 9;
};

function qbDeadRecursive(n) {
  return n <= 0 ? 0 : qbDeadRecursive(n - 1);
}

module.exports = { qbRequiredDestructured, qbViaModule, qbViaRequireProperty, qbDeadExported };
""",
    "qb_plant_single.js": """\
// Planted: a function that is the module's whole value.
function qbModuleFunction() {
  return 10;
}

module.exports = qbModuleFunction;
""",
    "qb_plant_called_require.js": """\
// Planted: a function that is the module's whole value, called on the require itself.
function qbCalledOnRequire() {
  return 17;
}

module.exports = qbCalledOnRequire;
""",
    "qb_plant_awaited.js": """\
// Planted: a function reached through an awaited dynamic import.
function qbAwaitImported() {
  return 18;
}

module.exports = { qbAwaitImported };
""",
    "qb_plant_exports_dot.js": """\
// Planted: a function exported as a property of exports.
function qbExportsProperty() {
  return 11;
}

exports.qbExportsProperty = qbExportsProperty;
""",
    "qb_plant_values.js": """\
// Planted: an arrow function and a function expression bound to constants.
const qbArrowRequired = () => 12;

const qbFunctionExpressionRequired = function () {
  return 13;
};

module.exports = { qbArrowRequired, qbFunctionExpressionRequired };
""",
    "qb_plant_reexport.js": """\
// Planted: a function the barrel re-exports.
function qbReexported() {
  return 14;
}

module.exports = { qbReexported };
""",
    "qb_plant_barrel.js": """\
// Planted: a barrel module between the driver and a definition.
const { qbReexported } = require('./qb_plant_reexport');

module.exports = { qbReexported };
""",
    "qb_plant_public.js": """\
// Planted: a function the entry file exports, so public.
function qbPublic() {
  return 15;
}

module.exports = { qbPublic };
""",
    "qb_plant_dynamic.js": """\
// Planted: a function reached through a dynamic import.
function qbDynamicallyImported() {
  return 16;
}

module.exports = { qbDynamicallyImported };
""",
    "qb_plant_classes.js": """\
// Planted: classes whose methods are called on receivers of known type.
class QbBase {
  $m1() {
    return 20;
  }
}

class QbChild extends QbBase {
  qbStart() {
    return this.$m1();
  }
}

class QbHelper {
  $m2() {
    return 22;
  }
}

class QbOwner {
  constructor() {
    this.helper = new QbHelper();
  }

  qbUseHelper() {
    return this.helper.$m2();
  }
}

class QbService {
  $m3() {
    return 23;
  }
}

function qbMakeService() {
  return new QbService();
}

class QbFresh {
  $m1() {
    return 24;
  }

  qbDeadMethod() {
    return 25;
  }
}

function QbLegacy() {
  this.qbValue = 26;
}

QbLegacy.prototype.qbLegacyRun = function () {
  return 27;
};

QbLegacy.prototype.qbLegacyDead = function () {
  return 28;
};

module.exports = { QbChild, QbFresh, QbOwner, QbLegacy, qbMakeService };
""",
    "qb_plant_callbacks.js": """\
// Planted: functions passed as values, and the methods of an object literal.
function qbCallbackArgument() {
  return 30;
}

function qbMapper(value) {
  return value + 31;
}

function qbApply(callback) {
  return callback();
}

const qbHandlers = {
  qbOnLive() {
    return 32;
  },
  qbOnDead() {
    return 33;
  },
};

function qbUseCallbacks() {
  return [qbApply(qbCallbackArgument), ...[1, 2].map(qbMapper), qbHandlers.qbOnLive()];
}

module.exports = { qbUseCallbacks, qbHandlers };
""",
    "qb_plant_driver.js": """\
// Planted: uses every live plant; the entry file calls qbDrive() at load.
const { qbRequiredDestructured } = require('./qb_plant_core');
const qbCore = require('./qb_plant_core');
const qbModuleFunction = require('./qb_plant_single');
const qbExportsDot = require('./qb_plant_exports_dot');
const { qbArrowRequired, qbFunctionExpressionRequired } = require('./qb_plant_values');
const { qbReexported } = require('./qb_plant_barrel');
const { QbChild, QbFresh, QbOwner, QbLegacy, qbMakeService } = require('./qb_plant_classes');
const { qbUseCallbacks } = require('./qb_plant_callbacks');

async function qbAwaitDynamic() {
  const module = await import('./qb_plant_awaited.js');
  return module.qbAwaitImported();
}

function qbDrive() {
  const service = qbMakeService();
  return [
    qbRequiredDestructured(),
    qbCore.qbViaModule(),
    require('./qb_plant_core').qbViaRequireProperty(),
    qbModuleFunction(),
    qbExportsDot.qbExportsProperty(),
    qbArrowRequired(),
    qbFunctionExpressionRequired(),
    qbReexported(),
    new QbChild().qbStart(),
    new QbFresh().$m1(),
    new QbOwner().qbUseHelper(),
    service.$m3(),
    new QbLegacy().qbLegacyRun(),
    qbUseCallbacks(),
    import('./qb_plant_dynamic.js').then((m) => m.qbDynamicallyImported()),
    require('./qb_plant_called_require')(),
    qbAwaitDynamic(),
  ];
}

module.exports = { qbDrive };
""",
}

CJS_ENTRY = """
${banner}\
module.exports.qbPublic = require('./qb_plant_public').qbPublic;
require('./qb_plant_driver').qbDrive();
"""

HOST_METHOD = "qbDeadHostMethod"


@dataclass(frozen=True)
class Plant:
    live: bool
    way: str  # how it is used (live) or what it is (dead)
    module: str  # the planted module's file name, or a path relative to the copy (host)
    qualnames: tuple[str, ...]  # the symbols that must (live) or must not (dead) be used
    kind: str = ""  # the kind of definition, for the report


def plants_of(base):
    """The plants of `base`, symbol by symbol, with their files relative to the copy. The
    inner end of the dead chain is not measured: it is used, by dead code."""
    site = os.path.dirname(base.site.entry)
    m1, m2, m3 = base.methods
    ext = "js" if base.site.dialect == "cjs" else "ts"

    def at(name):
        return f"{site}/qb_plant_{name}.{ext}"

    core, classes, callbacks = at("core"), at("classes"), at("callbacks")
    driver = f"{site}/qb_plant_driver.tsx" if base.site.dialect == "tsx" else at("driver")
    out = [
        Plant(False, "unexported function", core, ("qbDeadLocal",), "function"),
        Plant(False, "exported function nothing imports", core, ("qbDeadExported",), "function"),
        Plant(False, "class", core, ("QbDeadClass",), "class"),
        Plant(False, "outer end of a dead chain", core, ("qbDeadChainOuter",), "function"),
        Plant(False, "arrow function bound to a const", core, ("qbDeadArrow",), "function"),
        Plant(False, "function expression bound to a const", core, ("qbDeadFunctionExpression",), "function"),
        Plant(False, "method nothing calls, of a live class", classes, ("QbFresh.qbDeadMethod",), "method"),
        Plant(False, "method of an exported object literal nothing calls", callbacks, ("qbHandlers.qbOnDead",), "method"),
        Plant(True, "passed as a callback argument", callbacks, ("qbCallbackArgument",), "function"),
        Plant(True, "passed to Array.map", callbacks, ("qbMapper",), "function"),
        Plant(True, "method of an exported object literal called on the object", callbacks, ("qbHandlers.qbOnLive",), "method"),
        Plant(True, f"inherited this.{m1}()", classes, (f"QbBase.{m1}",), "method"),
        Plant(True, "base class only in extends", classes, ("QbBase",), "class"),
        Plant(True, f"this.helper.{m2}(), helper made by the constructor", classes, (f"QbHelper.{m2}",), "method"),
        Plant(True, f"new QbFresh().{m1}()", classes, (f"QbFresh.{m1}",), "method"),
        Plant(True, "plumbing, called directly", classes, ("QbChild", "QbChild.qbStart", "QbOwner", "QbOwner.qbUseHelper", "QbFresh", "qbMakeService"), ""),
        Plant(True, "plumbing, called directly", callbacks, ("qbApply", "qbUseCallbacks"), "function"),
        Plant(False, "function whose only use is its own recursive call", core, ("qbDeadRecursive",), "function"),
        Plant(True, "import('./m').then((m) => m.f())", at("dynamic"), ("qbDynamicallyImported",), "function"),
        Plant(True, "const m = await import('./m'); m.f()", at("awaited"), ("qbAwaitImported",), "function"),
        Plant(True, "plumbing, called directly", driver, ("qbAwaitDynamic",), "function"),
        Plant(True, "re-exported by the entry file", at("public"), ("qbPublic",), "function"),
        Plant(True, "re-export through a barrel", at("reexport"), ("qbReexported",), "function"),
        Plant(True, "plumbing, called by the entry file", driver, ("qbDrive",), "function"),
    ]
    if base.site.dialect == "cjs":
        out += [
            Plant(False, "prototype method nothing calls", classes, ("QbLegacy.qbLegacyDead",), "method"),
            Plant(True, "const { f } = require('./m')", core, ("qbRequiredDestructured",), "function"),
            Plant(True, "const m = require('./m'); m.f()", core, ("qbViaModule",), "function"),
            Plant(True, "require('./m').f()", core, ("qbViaRequireProperty",), "function"),
            Plant(True, "module.exports = f; const f = require('./m'); f()", at("single"), ("qbModuleFunction",), "function"),
            Plant(True, "exports.f = f", at("exports_dot"), ("qbExportsProperty",), "function"),
            Plant(True, "module.exports = f; require('./m')()", at("called_require"), ("qbCalledOnRequire",), "function"),
            Plant(True, "arrow function bound to a const, required", at("values"), ("qbArrowRequired",), "function"),
            Plant(True, "function expression bound to a const, required", at("values"), ("qbFunctionExpressionRequired",), "function"),
            Plant(True, f"service.{m3}(), service returned by a call", classes, (f"QbService.{m3}",), "method"),
            Plant(True, "prototype method called on new C()", classes, ("QbLegacy.qbLegacyRun",), "method"),
            Plant(True, "plumbing, called directly", classes, ("QbService", "QbLegacy"), ""),
        ]
    else:
        types = at("types")
        out += [
            Plant(False, "interface", core, ("QbDeadInterface",), "interface"),
            Plant(False, "type alias", core, ("QbDeadAlias",), "type_alias"),
            Plant(False, "enum", core, ("QbDeadEnum",), "enum"),
            Plant(True, "named import", core, ("qbImported",), "function"),
            Plant(True, "namespace import + member", core, ("qbViaNamespace",), "function"),
            Plant(True, "namespace object passed as a value", at("namespace_value"), ("qbThroughNamespaceValue",), "function"),
            Plant(True, "plumbing, called directly", driver, ("qbCallThrough",), "function"),
            Plant(True, "default import", at("default"), ("qbDefaultImported",), "function"),
            Plant(True, "arrow function bound to a const, imported", at("values"), ("qbArrowImported",), "function"),
            Plant(True, "function expression bound to a const, imported", at("values"), ("qbFunctionExpressionImported",), "function"),
            Plant(True, "export * through a barrel", at("star"), ("qbStarExported",), "function"),
            Plant(True, "re-exported by the entry file with export *", at("public_star"), ("qbPublicStar",), "function"),
            Plant(True, f"service.{m3}(), service: QbService annotated", classes, (f"QbService.{m3}",), "method"),
            Plant(True, "method called through an interface it implements", classes, ("QbSquare.qbArea",), "method"),
            Plant(True, "interface only in a type annotation", types, ("QbShape",), "interface"),
            Plant(True, "interface only in implements", types, ("QbImplementedOnly",), "interface"),
            Plant(True, "type alias only in a parameter annotation", types, ("QbOptions",), "type_alias"),
            Plant(True, "enum member read", types, ("QbKind",), "enum"),
            Plant(True, "plumbing, called directly", classes, ("QbService", "QbSquare"), "class"),
        ]
    if base.site.dialect == "tsx":
        view = f"{site}/qb_plant_view.tsx"
        out += [
            Plant(False, "component nothing renders", view, ("QbDeadBadge",), "function"),
            Plant(True, "JSX element <QbBadge/>", view, ("QbBadge",), "function"),
        ]
    if base.shared:
        shared = f"{os.path.dirname(base.shared.entry)}/qb_plant_shared.ts"
        out += [
            Plant(False, "exported from another workspace package, never imported", shared, ("qbSharedDead",), "function"),
            Plant(True, "imported by package name from another workspace package", shared, ("qbShared",), "function"),
            Plant(True, "class imported by package name, method called", shared, ("QbSharedClient", "QbSharedClient.qbFetch"), ""),
        ]
    if base.host:
        out.append(Plant(False, "private method added to a class of the code base", base.host[0], (f"{base.host[1]}.{HOST_METHOD}",), "method"))
    return out


def plant(base, root):
    """Writes the planted modules beside the entry file of the copy at `root`, appends the
    driver call and the re-export to the entry file, the shared site's modules and
    re-export (in a workspace), and the dead private method to the host class."""
    site_dir = os.path.join(root, os.path.dirname(base.site.entry))
    m1, m2, m3 = base.methods
    fill = {"m1": m1, "m2": m2, "m3": m3, "banner": BANNER}
    if base.site.dialect == "cjs":
        modules, entry = dict(CJS_MODULES), CJS_ENTRY
    else:
        modules, entry = dict(TS_MODULES), TS_ENTRY
        imports, uses = "", ""
        if base.site.dialect == "tsx":
            modules.update(TSX_MODULES)
            imports += "import { QbBadge } from './qb_plant_view';\n"
            uses += '\n    <QbBadge label="qb" />,'
        if base.shared:
            package = package_name(root, base.shared.entry)
            imports += f"import {{ QbSharedClient, qbShared }} from '{package}';\n"
            uses += "\n    qbShared(),\n    new QbSharedClient().qbFetch(),"
        driver = "qb_plant_driver.tsx" if base.site.dialect == "tsx" else "qb_plant_driver.ts"
        modules[driver] = Template(TS_DRIVER).safe_substitute(imports=imports, uses=uses)
    for name, text in modules.items():
        write(os.path.join(site_dir, name), Template(text).substitute(fill))
    append(os.path.join(root, base.site.entry), Template(entry).substitute(fill))
    if base.shared:
        shared_dir = os.path.join(root, os.path.dirname(base.shared.entry))
        write(os.path.join(shared_dir, "qb_plant_shared.ts"), SHARED_MODULE)
        append(os.path.join(root, base.shared.entry), Template(SHARED_ENTRY).substitute(fill))
    if base.host:
        add_host_method(os.path.join(root, base.host[0]), base.host[1])


def package_name(root, entry):
    """The name of the package.json nearest above `entry` (relative to `root`)."""
    directory = os.path.dirname(os.path.join(root, entry))
    while not os.path.exists(os.path.join(directory, "package.json")):
        directory = os.path.dirname(directory)
    with open(os.path.join(directory, "package.json"), encoding="utf-8") as f:
        return json.load(f)["name"]


def write(path, text):
    with open(path, "w", encoding="utf-8") as out:
        out.write(text)


def append(path, text):
    with open(path, "a", encoding="utf-8") as out:
        out.write(text)


def add_host_method(path, class_name):
    """Inserts a private method nobody calls at the top of the class's body: after the first
    line, from the class header on, that ends with an opening brace."""
    with open(path, encoding="utf-8") as f:
        lines = f.read().splitlines(keepends=True)
    header = re.compile(rf"^\s*(export\s+)?(default\s+)?(abstract\s+)?class\s+{re.escape(class_name)}\b")
    start = next(i for i, line in enumerate(lines) if header.match(line))
    brace = next(i for i in range(start, len(lines)) if lines[i].rstrip().endswith("{"))
    method = [
        "  // Planted: a private method nothing calls.\n",
        f"  private {HOST_METHOD}(): number {{\n",
        "    return 50;\n",
        "  }\n",
        "\n",
    ]
    lines[brace + 1 : brace + 1] = method
    with open(path, "w", encoding="utf-8") as f:
        f.write("".join(lines))


def is_planted(path):
    return os.path.basename(path).startswith("qb_plant_")


def drop(root, patterns):
    """Removes what the patterns (relative to `root`, `**` for any depth) match."""
    for pattern in patterns:
        for path in sorted(glob.glob(os.path.join(root, pattern), recursive=True), reverse=True):
            if ".quarry" in path.split(os.sep) or "node_modules" in path.split(os.sep):
                continue
            if os.path.isdir(path):
                shutil.rmtree(path, ignore_errors=True)
            elif os.path.exists(path):
                os.remove(path)

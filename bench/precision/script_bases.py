"""The real JavaScript and TypeScript code bases the script precision benchmark plants into.

Each code base is one or more npm packages at pinned versions that ship their sources,
fetched with `npm pack` into the results directory and unpacked into a copy: alone at the
top of the copy, or, for a workspace, each under `packages/` beside a root package.json
that names them as its workspaces. Built output and tests are left out: the tools measured here judge production
sources, and the entries that package.json writes as built files (`dist/index.js`) are
looked up as their sources.

`site` is where the plants go: the directory of the entry file, the entry file (relative to
the copy) whose top level calls the planted driver, and the dialect of the plants (`ts`
for TypeScript, `tsx` for TypeScript with JSX, `cjs` for CommonJS JavaScript). `methods`
are the names of the methods planted on typed receivers (inherited `this.m()`,
`this.helper.m()`, a receiver annotated or made by a call); where the code base defines
methods, each names at least two of them, so that only a binding through the receiver's
type, not a guess by name, finds the plant. `host` is a class of the code base (file,
class) into which a private method nothing calls is planted, or None.
"""

from dataclasses import dataclass, field


@dataclass(frozen=True)
class Package:
    spec: str  # name@version, as `npm pack` takes it
    dest: str  # directory of the copy it is unpacked into ("" for the top)


@dataclass(frozen=True)
class Site:
    entry: str  # the entry file, relative to the copy; the plants go beside it
    dialect: str  # ts, tsx or cjs


@dataclass(frozen=True)
class CodeBase:
    name: str  # the name used on the command line and in the results
    style: str  # what kind of code it is, for the report
    packages: tuple[Package, ...]
    site: Site
    methods: tuple[str, str, str]  # inherited this.m(), this.helper.m(), typed receiver .m()
    host: tuple[str, str] | None  # (file, class) receiving a dead private method
    drop: tuple[str, ...] = ()  # glob patterns (relative to the copy) left out
    workspace: bool = False  # write a root package.json naming packages/* as workspaces
    shared: Site | None = None  # a second site in another workspace package (see plants)
    tsconfig: str | None = None  # the tsconfig.json madge reads, relative to the copy
    knip: dict = field(default_factory=dict)  # what knip's configuration adds, if anything


# Tests and built output, wherever they are.
COMMON_DROP = (
    "**/__tests__",
    "**/*.test.*",
    "**/*.spec.*",
    "**/*.test-d.*",
    "**/test",
    "**/spec",
)

CODE_BASES = [
    CodeBase(
        name="rxjs",
        style="TypeScript library",
        packages=(Package("rxjs@7.8.1", ""),),
        site=Site("src/index.ts", "ts"),
        methods=("subscribe", "unsubscribe", "complete"),
        host=("src/internal/Subscriber.ts", "Subscriber"),
        drop=("dist", "src/tsconfig.*.json", "src/Rx.global.js"),
        tsconfig="tsconfig.json",
        # The sources of the package's entries; knip finds only src/index.ts by itself,
        # as the built files package.json names are not shipped with the sources.
        knip={
            "entry": [
                "src/index.ts",
                "src/operators/index.ts",
                "src/ajax/index.ts",
                "src/fetch/index.ts",
                "src/testing/index.ts",
                "src/webSocket/index.ts",
            ]
        },
    ),
    CodeBase(
        name="react-day-picker",
        style="React components (TSX)",
        packages=(Package("react-day-picker@8.10.1", ""),),
        site=Site("src/index.ts", "tsx"),
        methods=("render", "update", "reset"),
        host=None,
        drop=("dist", "src/style.css.d.ts"),
        tsconfig="tsconfig.json",
    ),
    CodeBase(
        name="nodemon",
        style="Node CLI (CommonJS)",
        packages=(Package("nodemon@3.1.4", ""),),
        site=Site("lib/nodemon.js", "cjs"),
        methods=("run", "reset", "detail"),
        host=None,
        drop=("doc", "bin/windows-kill.exe"),
        tsconfig=None,
    ),
    CodeBase(
        name="tanstack-query",
        style="workspace: query-core, react-query, query-persist-client-core",
        packages=(
            Package("@tanstack/query-core@5.51.1", "packages/query-core"),
            Package("@tanstack/react-query@5.51.1", "packages/react-query"),
            Package("@tanstack/query-persist-client-core@5.51.1", "packages/query-persist-client-core"),
        ),
        site=Site("packages/react-query/src/index.ts", "tsx"),
        shared=Site("packages/query-core/src/index.ts", "ts"),
        methods=("setOptions", "destroy", "clear"),
        host=("packages/query-core/src/queryCache.ts", "QueryCache"),
        drop=("packages/*/build",),
        workspace=True,
        tsconfig=None,
    ),
]

"""The real libraries the precision benchmark plants into, one entry each.

Each library is taken from its Debian package (sources under /usr/lib/python3/dist-packages).
`host` is a class of the library that the library itself uses, into which a dead method is
planted; it has no base outside the library, so that the method can be a dead-code candidate.
`methods` are the names of the methods planted on typed receivers (inherited `self.m()`,
`self.helper.m()`, `param.m()`): each is the name of at least two methods the library already
defines, so that only a binding through the receiver's type, not a guess by name, finds the
plant.
"""

from dataclasses import dataclass, field

DIST_PACKAGES = "/usr/lib/python3/dist-packages"


@dataclass(frozen=True)
class Library:
    name: str  # the name used on the command line and in the results
    apt: str  # the Debian package that ships it
    package: str  # the package directory under DIST_PACKAGES, put at the top of the copy
    host: tuple[str, str]  # (file relative to the copy, class name) receiving a dead method
    methods: tuple[str, str, str]  # inherited self.m(), self.helper.m(), param.m()
    style: str  # what kind of code it is, for the report
    exclude: tuple[str, ...] = ()  # directory names left out of the copy
    subpackages: tuple[str, ...] = field(default=())  # when set, only these subpackages


LIBRARIES = [
    Library(
        name="flask",
        apt="python3-flask",
        package="flask",
        host=("flask/app.py", "Flask"),
        methods=("dispatch_request", "get", "check"),
        style="web framework",
    ),
    Library(
        name="requests",
        apt="python3-requests",
        package="requests",
        host=("requests/sessions.py", "Session"),
        methods=("send", "close", "copy"),
        style="HTTP client",
    ),
    Library(
        name="click",
        apt="python3-click",
        package="click",
        host=("click/core.py", "Context"),
        methods=("invoke", "convert", "process"),
        style="CLI library",
    ),
    Library(
        name="pip",
        apt="python3-pip",
        package="pip",
        host=("pip/_internal/req/req_install.py", "InstallRequirement"),
        methods=("run", "get", "update"),
        style="packaging tool",
        exclude=("_vendor",),
    ),
    Library(
        name="jinja2",
        apt="python3-jinja2",
        package="jinja2",
        host=("jinja2/environment.py", "Environment"),
        methods=("parse", "load", "render"),
        style="templating",
    ),
    Library(
        # The whole of sympy is 750,000 lines; these subpackages (150,000 lines with their
        # tests) keep a run to a few minutes while holding its core class hierarchy.
        name="sympy",
        apt="python3-sympy",
        package="sympy",
        host=("sympy/core/basic.py", "Basic"),
        methods=("doit", "inverse", "negated"),
        style="symbolic maths",
        subpackages=(
            "core",
            "logic",
            "sets",
            "functions",
            "assumptions",
            "multipledispatch",
            "strategies",
            "utilities",
        ),
    ),
]

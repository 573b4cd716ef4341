"""Request handlers: one routed by decorator, a family dispatched by name."""
from .catalog import Book, Catalog
from .storage.orders import save_order
from .web import route

CATALOG = Catalog()


@route("/books")
def list_books():
    return [(item.describe(), item.price()) for item in CATALOG.items]


class Commands:
    def dispatch(self, name, *args):
        return getattr(self, "do_" + name)(*args)

    def do_add(self, title, cents, author):
        CATALOG.add(Book(title, cents, author))

    def do_total(self):
        return CATALOG.total()

    def do_checkout(self):
        return save_order(CATALOG)


def unused_helper():
    return "nobody calls me"


COMMANDS = Commands()


@route("/command")
def run_command(name):
    return COMMANDS.dispatch(name)

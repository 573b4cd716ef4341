"""A tiny routing table."""
ROUTES = {}


def route(path):
    def register(handler):
        ROUTES[path] = handler
        return handler

    return register

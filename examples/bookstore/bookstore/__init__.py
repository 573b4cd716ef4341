"""A small bookstore: a catalog, prices, a store of orders and web handlers."""
from .catalog import Book, Catalog

__all__ = ["Book", "Catalog"]

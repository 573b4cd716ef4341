from bookstore.catalog import Book
from bookstore.pricing import price_with_tax
from bookstore.storage.orders import export_orders


def test_price_with_tax():
    assert price_with_tax(Book("A", 100, "B")) == 107


def test_export(tmp_path):
    export_orders(tmp_path / "orders.txt")

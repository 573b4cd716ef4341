"""Items for sale and the catalog that holds them."""
from . import pricing


class Item:
    def __init__(self, title, cents):
        self.title = title
        self.cents = cents

    def describe(self):
        return self.title


class Book(Item):
    def __init__(self, title, cents, author):
        super().__init__(title, cents)
        self.author = author

    def describe(self):
        return f"{self.title} by {self.author}"

    def price(self):
        return pricing.price_with_tax(self)


class Catalog:
    def __init__(self):
        self.items = []

    def add(self, item):
        self.items.append(item)

    def total(self):
        return sum(pricing.discounted(item, 0) for item in self.items)

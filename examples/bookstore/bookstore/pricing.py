"""Prices. Imports the catalog back, so the two modules depend on each other."""
from . import catalog

TAX_RATE = 0.07


def price_with_tax(item):
    return round(item.cents * (1 + TAX_RATE))


def discounted(item, percent):
    if isinstance(item, catalog.Book):
        return price_with_tax(item) * (100 - percent) // 100
    return price_with_tax(item)


def legacy_rounding(cents):
    # Nothing calls this any more.
    return cents - cents % 5

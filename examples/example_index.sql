-- A small index of a shop written in Python: three packages, a test, a document.
-- make_index creates the tables first; this script only fills them.
INSERT INTO components (id, name) VALUES
  (1, 'shop'), (2, 'shop.billing'), (3, 'shop.api');

INSERT INTO files (id, path, language, component_id) VALUES
  (1, 'shop/__init__.py', 'python', 1),
  (2, 'shop/cart.py', 'python', 1),
  (3, 'shop/billing/invoice.py', 'python', 2),
  (4, 'shop/billing/tax.py', 'python', 2),
  (5, 'shop/api/handlers.py', 'python', 3),
  (6, 'tests/test_cart.py', 'python', NULL),
  (7, 'README.md', 'markdown', NULL);

INSERT INTO symbols (id, file_id, name, kind, fqn, start_line, end_line, signature, is_export) VALUES
  (1, 1, 'shop', 'module', 'shop', 1, 3, NULL, 0),
  (2, 2, 'cart', 'module', 'shop.cart', 1, 40, NULL, 0),
  (10, 2, 'Cart', 'class', 'shop.cart.Cart', 5, 20, 'class Cart:', 1),
  (11, 2, 'add', 'method', 'shop.cart.Cart.add', 8, 12, 'def add(self, item):', 0),
  (12, 2, 'total', 'method', 'shop.cart.Cart.total', 14, 20, 'def total(self):', 0),
  (13, 2, 'checkout', 'function', 'shop.cart.checkout', 22, 28, 'def checkout(cart):', 0),
  (14, 2, 'legacy_discount', 'function', 'shop.cart.legacy_discount', 30, 34,
      'def legacy_discount(price):', 0),
  (20, 3, 'Invoice', 'class', 'shop.billing.invoice.Invoice', 3, 12, 'class Invoice:', 0),
  (21, 3, 'render', 'method', 'shop.billing.invoice.Invoice.render', 7, 12,
      'def render(self):', 0),
  (22, 3, 'create_invoice', 'function', 'shop.billing.invoice.create_invoice', 15, 22,
      'def create_invoice(cart):', 0),
  (23, 3, 'format_amount', 'function', 'shop.billing.invoice.format_amount', 25, 28,
      'def format_amount(value):', 0),
  (30, 4, 'compute_tax', 'function', 'shop.billing.tax.compute_tax', 4, 10,
      'def compute_tax(cart):', 0),
  (31, 4, 'tax_rate', 'function', 'shop.billing.tax.tax_rate', 12, 16, 'def tax_rate():', 0),
  (32, 4, 'old_rate', 'function', 'shop.billing.tax.old_rate', 20, 24, 'def old_rate():', 0),
  (40, 5, 'handle_checkout', 'function', 'shop.api.handlers.handle_checkout', 6, 13,
      '@app.route("/checkout") def handle_checkout():', 0),
  (41, 5, 'Page', 'class', 'shop.api.handlers.Page', 15, 22, 'class Page:', 0),
  (42, 5, 'render', 'method', 'shop.api.handlers.Page.render', 18, 22, 'def render(self):', 0),
  (50, 6, 'test_checkout', 'function', 'tests.test_cart.test_checkout', 3, 8,
      'def test_checkout():', 0),
  (51, 6, 'test_old_rate', 'function', 'tests.test_cart.test_old_rate', 10, 12,
      'def test_old_rate():', 0),
  (60, 7, 'Usage', 'section', 'README.Usage', 1, 9, NULL, 0);

INSERT INTO edges (source_id, target_id, kind, resolution, line) VALUES
  (13, 22, 'call', 'import', 24),
  (13, 12, 'call', 'exact', 23),
  (22, 30, 'call', 'import', 17),
  (22, 20, 'call', 'import', 18),
  (22, 23, 'call', 'ambiguous', 19),
  (30, 12, 'call', 'import', 6),
  (30, 31, 'call', 'local', 7),
  (40, 10, 'call', 'import', 7),
  (40, 11, 'call', 'exact', 8),
  (40, 13, 'call', 'import', 9),
  (40, 21, 'call', 'ambiguous', 10),
  (40, 42, 'call', 'ambiguous', 10),
  (50, 13, 'call', 'import', 4),
  (50, 11, 'call', 'exact', 5),
  (51, 32, 'call', 'import', 11),
  (60, 13, 'link', 'exact', 4);

INSERT INTO pending_references (source_id, target_name, line) VALUES
  (40, 'format_amount', 12);

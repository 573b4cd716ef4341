import type { Cart } from './cart';

export function applyDiscount(amount: number): number {
  return amount * 0.9;
}

export function discountFor(cart: Cart): number {
  return cart.total() > 100 ? 0.1 : 0;
}

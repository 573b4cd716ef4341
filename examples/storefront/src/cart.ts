import { applyDiscount } from './discount';

export class Cart {
  private items: number[] = [];

  add(price: number): void {
    this.items.push(price);
  }

  total(): number {
    return applyDiscount(this.items.reduce((sum, price) => sum + price, 0));
  }

  clear(): void {
    this.items = [];
  }
}

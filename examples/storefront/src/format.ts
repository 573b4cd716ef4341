export const formatPrice = (amount: number) => `$${amount.toFixed(2)}`;

export function legacyFormat(amount: number) {
  return String(amount);
}

import { Button } from '@ui/Button';
import { Cart } from './cart';
import { formatPrice } from './format';

export function App() {
  const cart = new Cart();
  cart.add(3);
  return <Button label={formatPrice(cart.total())} />;
}

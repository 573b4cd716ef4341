import { Cart } from '../cart';

const cart = new Cart();
cart.clear();

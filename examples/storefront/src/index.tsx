import { App } from './App';
import { render } from './render';

export function start() {
  return render(<App />);
}

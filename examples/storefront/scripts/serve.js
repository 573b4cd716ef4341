const { render } = require('../src/render');

function serve(port) {
  return render({ port });
}

serve(8080);

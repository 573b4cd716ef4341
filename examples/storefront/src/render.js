function render(element) {
  return { mounted: element };
}

function unmount(node) {
  return node.mounted;
}

module.exports = { render, unmount };

// What fields that are typed into have in common: a text, and a selection of all that stays one when the value changes.
export function typedField(node) {
  return {
    node,
    get text() { return node.value; },
    show(value) {
      const isAllSelected = document.activeElement === node && node.selectionStart === 0
        && node.selectionEnd === node.value.length;
      node.value = value;
      if (isAllSelected) node.select();
    },
  };
}

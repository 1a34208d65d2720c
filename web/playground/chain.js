// Steps {operation, values} as the text of a chain; values are texts by the names of parameters,
// empty for a switch.

function quoted(text) {
  if (!/[\s"']/.test(text)) return text;
  return text.split('"').map((part) => `"${part}"`).join(`'"'`);
}

export function chainText(steps) {
  const words = ({operation, values}) => [
    operation,
    ...Object.entries(values).map(([name, text]) => (text ? `${name}=${quoted(text)}` : name)),
  ];
  return steps.map((step) => words(step).join(" ")).join(" : ");
}

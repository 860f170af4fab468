// Headers as typed against headers of the reference: short and long forms, optional nodes.

const shortForm = (node) => node.replace(/[a-z]/g, "");

/** ":SYSTem:ERRor[:NEXT]" => [[":SYSTem", ":ERRor"], [":SYSTem", ":ERRor", ":NEXT"]], the shortest first. */
export function variants(header) {
  const parts = header.match(/\[[^\]]*\]|\*\w+|:\w+/g) ?? [];
  let results = [[]];
  for (const part of parts) {
    const nodes = part.replace(/[[\]]/g, "").match(/\*\w+|:\w+/g) ?? [];
    const longer = results.map((variant) => [...variant, ...nodes]);
    results = part.startsWith("[") ? [...results, ...longer] : longer;
  }
  return results.filter((variant) => variant.length > 0).sort((left, right) => left.length - right.length);
}

/** The unit of the line at the caret: `{start, header, query, rest}`; `rest` is null before the space. */
export function unitAt(line, caret) {
  const start = line.lastIndexOf(";", caret - 1) + 1;
  const text = line.slice(start, caret);
  const lead = text.length - text.trimStart().length;
  const [, header, query, rest] = text.trimStart().match(/^([^\s?]*)(\??)(\s.*)?$/s) ?? [null, text.trim(), "", null];
  return { start: start + lead, header, query: query !== "", rest: rest ?? null };
}

function typedNodes(header) {
  const text = header.startsWith("*") || header.startsWith(":") ? header : `:${header}`;
  return text.toUpperCase().match(/[*:]\w*/g) ?? [];
}

const isNode = (typed, node) => typed === node.toUpperCase() || typed === shortForm(node);

/** The variant whose beginning is `nodes`, the last of which may be incomplete; null if there is none. */
function begins(nodes, variant) {
  return nodes.length <= variant.length && nodes.every((typed, index) =>
    isNode(typed, variant[index]) || (index === nodes.length - 1 && variant[index].toUpperCase().startsWith(typed)));
}

/** `[{text, command}]` of the commands that begin as typed, each in its shortest form that does. */
export function complete(commands, header, limit = 8) {
  const nodes = typedNodes(header);
  const found = [];
  for (const command of nodes.length ? commands : []) {
    const variant = command.variants.find((each) => begins(nodes, each));
    if (variant) {
      found.push({ text: variant.join(""), exact: variant.length === nodes.length, command });
    }
  }
  // Those at this level of the tree come before those below it.
  return found.sort((left, right) => Number(right.exact) - Number(left.exact)).slice(0, limit);
}

/** The command that a whole header names, or undefined. */
export function find(commands, header) {
  const nodes = typedNodes(header);
  return commands.find(({ variants: all }) => all.some((variant) => variant.length === nodes.length &&
    nodes.every((typed, index) => isNode(typed, variant[index]))));
}

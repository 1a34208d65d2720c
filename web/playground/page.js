// The page: what the visitor chooses, and what the worker makes of it.
import {chainText} from "./chain.js";

const data = JSON.parse(document.getElementById("data").textContent);
const known = new Map(); // operations by name, as the library describes them

const at = (id) => document.getElementById(id);

function element(tag, properties = {}, ...children) {
  const made = Object.assign(document.createElement(tag), properties);
  made.append(...children);
  return made;
}

function bytesOf(base64) {
  return Uint8Array.from(atob(base64), (character) => character.charCodeAt(0));
}

// Asks the worker, which answers in its own time.
const worker = new Worker(
  URL.createObjectURL(new Blob([at("worker").textContent], {type: "text/javascript"})),
);
const waiting = new Map();
let asked = 0;
function ask(kind, given) {
  return new Promise((resolve, reject) => {
    waiting.set(++asked, {resolve, reject});
    worker.postMessage({id: asked, kind, given});
  });
}
worker.onmessage = ({data: {id, answer, fault}}) => {
  const {resolve, reject} = waiting.get(id);
  waiting.delete(id);
  if (fault) reject(fault);
  else resolve(answer);
};
worker.onerror = ({message}) => failPage(message);

// By name, as the command is to find them. What it could not be given as it is, or came with the
// page, can be saved.
const files = new Map();
let page = null; // of these
const steps = []; // {operation, values, texts}
let numbered = 0; // steps so far, for names that stay

function save(name, bytes) {
  const link = element("a", {href: URL.createObjectURL(new Blob([bytes])), download: name});
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

function failPage(message) {
  at("page-error").textContent = message;
  at("page-error").hidden = message === "";
}

async function byBrowser(name, bytes) {
  const picture = new Image();
  const type = /\.svg$/i.test(name) ? "image/svg+xml" : "";
  picture.src = URL.createObjectURL(new Blob([bytes], {type}));
  try {
    await picture.decode();
  } catch {
    throw new Error(`${name}: no image that this browser can read`);
  } finally {
    URL.revokeObjectURL(picture.src);
  }
  const [width, height] = [picture.naturalWidth, picture.naturalHeight];
  const canvas = element("canvas", {width, height});
  const context = canvas.getContext("2d", {willReadFrequently: true});
  context.drawImage(picture, 0, 0);
  const pixels = context.getImageData(0, 0, width, height).data;
  return {width, height, pixels};
}

const pnmName = (name, {isColor}) => `${name.replace(/\.[^.]*$/, "")}.${isColor ? "ppm" : "pgm"}`;

// The name under which it is known from now on.
async function load(name, bytes, isSample = false) {
  const read = await ask("read", {name, bytes}).catch((fault) => {
    throw new Error(`${name}: ${fault.message}`);
  });
  if (read) {
    files.set(name, {...read, save: isSample ? () => bytes : null});
    return name;
  }
  const taken = pnmName(name, {isColor: true});
  const image = await ask("take", {name: taken, ...(await byBrowser(name, bytes))});
  files.set(taken, {...image, save: () => ask("save", {name: taken, format: "pnm"})});
  return taken;
}

async function choosePage(loading) {
  try {
    let name = await loading;
    const {isTransparent} = files.get(name);
    if (isTransparent) {
      const as = pnmName(name, files.get(name)).replace(/(?=\.p.m$)/, "-on-white");
      files.set(as, {
        ...(await ask("flatten", {name, as})),
        save: () => ask("save", {name: as, format: "pnm"}),
      });
      name = as;
    }
    page = name;
    failPage("");
    const {width, height, isColor} = files.get(name);
    at("page-note").textContent =
      `${name}: ${width} × ${height}, ${isColor ? "color" : "gray"}` +
      `${isTransparent ? "; transparent parts are laid on white" : ""}. Or drop an image anywhere.`;
    draw("before", await ask("show", {name}));
    showSteps();
    refresh();
  } catch (error) {
    failPage(error.message);
  }
}

async function loadFile(file) {
  return load(file.name, new Uint8Array(await file.arrayBuffer()));
}

// Slider and number for the same value. The slider goes as far as is of use; where nothing need be
// given the number may be empty.
function slider(label, text, {low, high, initial, step = 1, optional}, set) {
  const id = `value${++numbered}`;
  const number = element("input", {type: "number", id, min: low, max: high, step, value: text});
  const width = page ? Math.max(files.get(page).width, files.get(page).height) : 1000;
  const isFar = high > 65535;
  const nearHigh = initial > 0 ? Math.min(high, 4 * initial) : high;
  const range = element("input", {
    type: "range", min: isFar ? Math.max(low, -width) : low, max: isFar ? width : nearHigh, step,
    value: text === "" ? high : text, ariaLabel: `${label}, slider`,
  });
  range.oninput = () => {
    number.value = range.value;
    set(range.value);
  };
  number.oninput = () => {
    range.value = number.value === "" ? high : number.value;
    set(number.value === "" && optional ? undefined : number.value);
  };
  const row = element("div", {className: "row"});
  row.append(element("label", {htmlFor: id, textContent: label}), range, number);
  return row;
}

function choices(label, options, chosen, set) {
  const id = `value${++numbered}`;
  const select = element("select", {id});
  for (const [value, words] of options) {
    select.add(new Option(words, value, false, value === chosen));
  }
  select.onchange = () => set(select.value);
  const row = element("div", {className: "row"});
  row.append(element("label", {htmlFor: id, textContent: label}), select);
  return row;
}

function group(label, ...rows) {
  return element("fieldset", {}, element("legend", {textContent: label}), ...rows);
}

// As numbers are written in a file.
function numberText(numbers, kind) {
  const inLine = kind === "matrix" ? 5 : 16;
  const lines = [];
  for (let i = 0; i < numbers.length; i += inLine) {
    lines.push(numbers.slice(i, i + inLine).join(" "));
  }
  return `${lines.join("\n")}\n`;
}

// Fine enough for the range.
function formulaLimits({low, high, neutral}) {
  return {low, high, initial: neutral, step: high - low < 100 ? 0.01 : 1};
}

// The presets, the formula, or numbers in a text that stands for a file, which begins with those of
// a preset.
function tableControl(parameter, step, set) {
  const {name, kind, count, formula, presets} = parameter;
  const ownName = `${name}${step.number}.txt`;
  const isFormula = (text) => text.startsWith(`${formula.name}=`);
  const below = element("div");
  const show = (text) => {
    below.replaceChildren();
    if (isFormula(text)) {
      const value = text.slice(formula.name.length + 1);
      const setValue = (number) => set(`${formula.name}=${number}`);
      below.append(slider(formula.name, value, formulaLimits(formula), setValue));
    } else if (text === ownName) {
      const numbers = element("textarea", {
        rows: 5, spellcheck: false, value: step.texts.get(ownName),
        ariaLabel: `${count} whole numbers, ${parameter.low} to ${parameter.high}`,
      });
      numbers.oninput = () => {
        step.texts.set(ownName, numbers.value);
        set(ownName);
      };
      below.append(numbers);
    }
  };
  const text = step.values[name] ?? parameter.default;
  const byFormula = `${formula.name}=${formula.neutral}`;
  const options = Object.keys(presets).map((preset) => [preset, preset]);
  options.push([byFormula, `${formula.name} …`], [ownName, "own numbers …"]);
  const chosen = isFormula(text) ? byFormula : text;
  const select = choices("kind", options, chosen, (value) => {
    if (!step.texts.has(ownName)) {
      const numbers = presets[step.values[name] ?? parameter.default] ?? Object.values(presets)[0];
      step.texts.set(ownName, numberText(numbers, kind));
    }
    set(value);
    show(value);
  });
  show(text);
  return group(name, select, below);
}

const controls = {
  number(parameter, step, set) {
    const {name, low, high, required} = parameter;
    const text = step.values[name] ?? parameter.default ?? "";
    const optional = !required && parameter.default === undefined;
    return slider(name, text, {low, high, initial: Number(parameter.default), optional}, set);
  },

  decimal(parameter, step, set) {
    const {name, low, high} = parameter;
    const text = step.values[name] ?? parameter.default;
    return slider(name, text, {low, high, step: 0.1}, set);
  },

  numbers(parameter, step, set) {
    const parts = (step.values[parameter.name] ?? parameter.default).split(",");
    const rows = parameter.argument.split(",").map((part, i) => {
      const initial = Number(parameter.default.split(",")[i]);
      const limits = {low: parameter.low, high: parameter.high, initial};
      return slider(part, parts[i], limits, (text) => {
        parts[i] = text;
        set(parts.join(","));
      });
    });
    return group(parameter.name, ...rows);
  },

  size(parameter, step, set) {
    const sides = (step.values[parameter.name] ?? "x").split("x");
    const row = element("div", {className: "row"});
    ["width", "height"].forEach((side, i) => {
      const input = element("input", {
        type: "number", min: parameter.low, max: parameter.high, value: sides[i],
        placeholder: side, ariaLabel: `${parameter.name}, ${side}`,
      });
      input.oninput = () => {
        sides[i] = input.value;
        set(sides.every((one) => one === "") ? undefined : sides.join("x"));
      };
      row.append(input);
    });
    return group(parameter.name, row);
  },

  choice(parameter, step, set) {
    const options = parameter.values.map((value) => [value, value]);
    const isOptional = !parameter.required && parameter.default === undefined;
    if (isOptional) options.unshift(["", "not given"]);
    const chosen = step.values[parameter.name] ?? parameter.default ?? "";
    return choices(parameter.name, options, chosen, (value) => set(value || undefined));
  },

  switch(parameter, step, set) {
    const input = element("input", {type: "checkbox", checked: parameter.name in step.values});
    input.onchange = () => set(input.checked ? "" : undefined);
    const label = element("label", {}, input, ` ${parameter.name}`);
    return element("div", {className: "row"}, label);
  },

  file(parameter, step, set) {
    const names = [...files.keys()].map((name) => [name, name]);
    const select = choices("image", names, step.values[parameter.name], set);
    const input = element("input", {type: "file", accept: at("file").accept});
    input.ariaLabel = `${parameter.name}, your own`;
    input.onchange = async () => {
      try {
        set(await loadFile(input.files[0]));
        showSteps();
      } catch (error) {
        showFault(step, error.message);
      }
    };
    return group(parameter.name, select, element("div", {className: "row"}, input));
  },

  curve: tableControl,
  matrix: tableControl,
};

// Line ends of the command's help stay before terms only.
function flowing(help) {
  return help.replace(/\n(?!\S+: )/g, " ");
}

function about(operation, id) {
  const list = element("dl");
  for (const {name, help} of operation.parameters) {
    list.append(
      element("dt", {textContent: name}),
      element("dd", {id: `${id}-${name}`, textContent: flowing(help)}),
    );
  }
  const text = element("p", {className: "about", textContent: flowing(operation.details)});
  return element("details", {}, element("summary", {textContent: "What it does"}), text, list);
}

function button(text, label, isEnabled, act) {
  const properties = {textContent: text, ariaLabel: label, title: label, onclick: act};
  return element("button", {type: "button", disabled: !isEnabled, ...properties});
}

// Moves or removes, and puts the focus where it was.
function rearrange(step, change, focused) {
  change(steps.indexOf(step));
  showSteps();
  const next = at(`step${step.number}`)?.querySelector(`button[data-is="${focused}"]:enabled`);
  (next ?? at("add")).focus();
  refresh();
}

function stepElement(step, place) {
  const operation = known.get(step.operation);
  const id = `step${step.number}`;
  const name = `step ${place + 1}, ${operation.name}`;
  const move = (by) => (from) => steps.splice(from + by, 0, ...steps.splice(from, 1));
  const buttons = {
    up: button("↑", `Move ${name} up`, place > 0, () => rearrange(step, move(-1), "up")),
    down: button("↓", `Move ${name} down`, place + 1 < steps.length, () =>
      rearrange(step, move(1), "down")),
    remove: button("✕", `Remove ${name}`, true, () =>
      rearrange(step, (from) => steps.splice(from, 1), "remove")),
  };
  for (const [is, made] of Object.entries(buttons)) made.dataset.is = is;
  const title = element("h3", {textContent: `${place + 1}. ${operation.name}`});
  title.append(element("small", {textContent: operation.summary}));
  const item = element("li", {id, ariaLabel: name});
  item.append(element("div", {className: "heading"}, title, ...Object.values(buttons)));
  for (const parameter of operation.parameters) {
    const control = controls[parameter.kind](parameter, step, (text) => {
      // An operation that needs a parameter takes its default for one too.
      const isUsual = text === parameter.default && !operation.needs_parameter;
      if (text === undefined || isUsual) delete step.values[parameter.name];
      else step.values[parameter.name] = text;
      refresh();
    });
    control.dataset.parameter = parameter.name;
    for (const input of control.querySelectorAll("input, select")) {
      input.setAttribute("aria-describedby", `${id}-${parameter.name}`);
    }
    item.append(control);
  }
  item.append(about(operation, id));
  const fault = element("p", {className: "error", hidden: true});
  fault.setAttribute("role", "alert");
  item.append(fault);
  return item;
}

function showSteps() {
  at("steps").replaceChildren(...steps.map(stepElement));
}

function showFault(step, message) {
  for (const fault of document.querySelectorAll("#steps .error")) {
    fault.hidden = !step || fault.parentElement.id !== `step${step.number}`;
    fault.textContent = fault.hidden ? "" : message;
  }
}

// What has to be given begins with the first there is.
function first(parameter) {
  switch (parameter.kind) {
    case "choice":
      return parameter.values[0];
    case "curve":
    case "matrix":
      return Object.keys(parameter.presets)[0];
    default:
      return [...files.keys()].find((name) => name.startsWith("stamp")) ?? page;
  }
}

function addStep(operation, values = {}) {
  const step = {operation, values: {...values}, texts: new Map(), number: ++numbered};
  const {parameters, needs_parameter: needsParameter} = known.get(operation);
  for (const parameter of parameters) {
    if (parameter.required) step.values[parameter.name] ??= first(parameter);
  }
  if (needsParameter && Object.keys(step.values).length === 0) {
    step.values[parameters[0].name] = parameters[0].default;
  }
  steps.push(step);
  return step;
}

// One whose effect is seen at once.
function addFirstStep() {
  const isMatrix = ({kind}) => kind === "matrix";
  const operation = [...known.values()].find(({parameters}) => parameters.some(isMatrix));
  const {name, formula} = operation.parameters.find(isMatrix);
  addStep(operation.name, {[name]: `${formula.name}=${formula.high / 4}`});
}

function draw(id, {width, height, bitmap}) {
  const canvas = Object.assign(at(id), {width, height});
  canvas.getContext("bitmaprenderer").transferFromImageBitmap(bitmap);
  arrange();
}

// Both at the same scale, top left corners together, and the divider across.
function arrange() {
  const [before, after] = [at("before"), at("after")];
  const width = Math.max(before.width, after.width);
  const whole = `calc(var(--room) * ${width / Math.max(before.height, after.height)})`;
  at("stage").style.width = at("actual").checked
    ? `${width / devicePixelRatio}px`
    : `min(100%, ${width}px, ${whole})`;
  const part = at("divide").value / 100;
  const inset = (canvas) => `${Math.min(1, (part * width) / canvas.width) * 100}%`;
  for (const canvas of [before, after]) canvas.style.width = `${(canvas.width / width) * 100}%`;
  before.style.clipPath = `inset(0 calc(100% - ${inset(before)}) 0 0)`;
  after.style.clipPath = `inset(0 0 0 ${inset(after)})`;
  at("divider").style.left = `${part * 100}%`;
  at("divide").setAttribute("aria-valuetext", `${at("divide").value} % before`);
}

function shellWord(text) {
  const safe = text.startsWith("-") ? `./${text}` : text;
  return /^[\w./+,@%-]+$/.test(safe) ? safe : `'${safe.replaceAll("'", "'\\''")}'`;
}

// The command, and what it needs that the visitor does not have.
function showCommand(result) {
  const shown = steps.length > 0 && page !== null;
  at("as-command").hidden = !shown;
  if (!shown) return;
  const out = `${page.startsWith("out.") ? "new" : "out"}.${result?.isColor === false ? "pgm" : "ppm"}`;
  const chain = chainText(steps).replaceAll("'", "'\\''");
  at("command").textContent = `rast chain '${chain}' ${shellWord(page)} ${out}`;
  const used = new Set([page]);
  for (const step of steps) {
    for (const {name, kind} of known.get(step.operation).parameters) {
      if (["file", "curve", "matrix"].includes(kind)) used.add(step.values[name]);
    }
  }
  const texts = allTexts();
  const saves = [...used].flatMap((name) => {
    const bytes = files.get(name)?.save ?? (texts.has(name) && (() => texts.get(name)));
    if (!bytes) return [];
    return [button(`Save ${name}`, `Save ${name}`, true, async () => save(name, await bytes()))];
  });
  at("saves").replaceChildren(at("copy"), ...saves);
}

function allTexts() {
  return new Map(steps.flatMap((step) => [...step.texts]));
}

async function run() {
  const ran = [...steps];
  const {width, height} = files.get(page);
  try {
    const result = await ask("run", {page, chain: chainText(steps), texts: allTexts()});
    showFault(null);
    failPage("");
    draw("after", result);
    at("figures").textContent =
      `${width} × ${height} → ${result.width} × ${result.height}, ` +
      `${result.isColor ? "color" : "gray"}, ${result.milliseconds.toFixed(1)} ms`;
    at("save-pnm").textContent = `Save as ${result.isColor ? "PPM" : "PGM"}`;
    showCommand(result);
    return true;
  } catch (fault) {
    const step = ran[fault.step - 1];
    showFault(step, fault.message);
    if (!step) failPage(fault.message);
    at("figures").textContent = step
      ? `Step ${fault.step}, ${step.operation}, refuses the page.`
      : "There is no result.";
    showCommand();
    return false;
  }
}

// One run at a time; what has changed meanwhile is taken by another one.
let running = false;
let outdated = false;
async function refresh() {
  outdated = true;
  if (running || page === null) return;
  running = true;
  at("result").ariaBusy = "true";
  let isDone = false;
  while (outdated) {
    outdated = false;
    isDone = await run();
  }
  running = false;
  at("result").classList.toggle("stale", !isDone);
  for (const id of ["save-png", "save-pnm"]) at(id).disabled = !isDone;
  at("result").ariaBusy = "false";
}

at("add").onclick = () => {
  const step = addStep(at("operation").value);
  showSteps();
  refresh();
  at(`step${step.number}`).querySelector("input, select, summary").focus();
};
at("divide").oninput = arrange;
at("actual").onchange = arrange;
at("sample").onchange = () => choosePage(at("sample").value);
at("file").onchange = () => {
  if (at("file").files.length > 0) choosePage(loadFile(at("file").files[0]));
};
at("save-png").onclick = async () => save("out.png", await ask("save", {format: "png"}));
at("save-pnm").onclick = async () => {
  const name = at("save-pnm").textContent.endsWith("PPM") ? "out.ppm" : "out.pgm";
  save(name, await ask("save", {format: "pnm"}));
};
at("copy").onclick = async () => {
  try {
    await navigator.clipboard.writeText(at("command").textContent);
    at("copied").textContent = "Copied.";
  } catch {
    getSelection().selectAllChildren(at("command"));
    at("copied").textContent = "This browser does not let the page copy; the command is selected.";
  }
};
document.ondragover = (event) => {
  event.preventDefault();
  document.body.classList.add("dropping");
};
document.ondragleave = () => document.body.classList.remove("dropping");
document.ondrop = (event) => {
  event.preventDefault();
  document.body.classList.remove("dropping");
  const [file] = event.dataTransfer.files;
  if (file) choosePage(loadFile(file));
};

try {
  for (const operation of await ask("start", {module: bytesOf(data.module)})) {
    const {name, summary} = operation;
    known.set(name, operation);
    at("operation").add(new Option(`${name}: ${summary}`, name));
  }
  for (const [name, base64] of Object.entries(data.samples)) {
    await load(name, bytesOf(base64), true);
    at("sample").add(new Option(name, name));
  }
  addFirstStep();
  choosePage(at("sample").value);
} catch (fault) {
  failPage(`This browser cannot run the library: ${fault.message}`);
  at("figures").textContent = "There is no result.";
}

// The operations of the rast command on images in memory, with the same results and refusals. An
// image is {width, height, planes}, one plane or three; with transparency it also has alpha. A step
// is {operation, values}: texts by the names of parameters, as the command takes them. Files are
// images, and texts of numbers, by their names.
import {apart, together} from "./images.js";
import {OutOfMemory, results} from "./rast.js";

export class Refusal extends Error {}

function refuse(text) {
  throw new Refusal(text);
}

function parse(option, text, low, high, kind, pattern) {
  const value = pattern.test(text) ? Number(text) : NaN;
  if (Number.isNaN(value) || value < low || value > high) {
    const fault = Number.isNaN(value) ? `no ${kind} number` : "out of range";
    refuse(`${option}: '${text}' is ${fault}; expected ${low}..${high}`);
  }
  return value;
}

function whole(option, text, {low, high}) {
  return parse(option, text, low, high, "whole", /^-?\d+$/);
}

function decimal(option, text, {low, high}) {
  return parse(option, text, low, high, "decimal", /^-?(\d+\.?\d*|\.\d+)(e[-+]?\d+)?$/i);
}

function separated(parameter, text, separator, count) {
  const option = `--${parameter.name}`;
  const parts = text.split(separator);
  if (parts.length < count) {
    refuse(`${option}: '${text}' is too short; expected ${parameter.argument}`);
  }
  const rest = parts.slice(count - 1).join(separator);
  return [...parts.slice(0, count - 1), rest].map((part) => whole(option, part, parameter));
}

function gammaCurve(gamma) {
  return Array.from({length: 256}, (_, i) => Math.round(255 * (i / 255) ** (1 / gamma)));
}

function hueRotation(degrees) {
  const one = 256;
  const luma = [0.213, 0.715, 0.072];
  const sines = [[-0.213, -0.715, 0.928], [0.143, 0.14, -0.283], [-0.787, 0.715, 0.072]];
  const angle = (degrees * Math.PI) / 180;
  return sines.flatMap((row, k) => {
    const weights = row.map((sine, j) =>
      Math.round((luma[j] - luma[j] * Math.cos(angle) + sine * Math.sin(angle)) * one),
    );
    weights[k] = one - weights[(k + 1) % 3] - weights[(k + 2) % 3];
    return [...weights, 0, 0];
  });
}

// By kind of parameter: what may be given as name=X beside the presets, and how many numbers come
// out.
export const formulas = {
  curve: {name: "gamma", low: 0.1, high: 10, initial: 1, step: 0.01, count: 256, of: gammaCurve},
  matrix: {name: "rotate", low: -360, high: 360, initial: 0, step: 1, count: 15, of: hueRotation},
};

// From text between white space and commas, # starting a comment.
function numbersOf(parameter, name, text, count) {
  const option = `--${parameter.name}: ${name}`;
  const numbers = [];
  text.split("\n").forEach((line, i) => {
    const place = `${option}, line ${i + 1}`;
    for (const token of line.replace(/#.*/, "").split(/[\s,]+/).filter(Boolean)) {
      if (numbers.length === count) {
        refuse(`${place}: '${token}' is too much after ${count} numbers`);
      }
      numbers.push(whole(place, token, parameter));
    }
  });
  if (numbers.length < count) {
    refuse(`${option}: holds ${numbers.length} numbers; expected ${count}`);
  }
  return numbers;
}

function fileOf(parameter, name, files) {
  return files.get(name) ?? refuse(`--${parameter.name}: '${name}' is not there; choose a file`);
}

function table(parameter, text, files) {
  const formula = formulas[parameter.kind];
  if (parameter.presets[text]) return parameter.presets[text];
  if (text.startsWith(`${formula.name}=`)) {
    const option = `--${parameter.name} ${formula.name}`;
    return formula.of(decimal(option, text.slice(formula.name.length + 1), formula));
  }
  return numbersOf(parameter, text, fileOf(parameter, text, files), formula.count);
}

const readers = {
  number: (parameter, text) => whole(`--${parameter.name}`, text, parameter),
  numbers: (parameter, text) =>
    separated(parameter, text, ",", parameter.argument.split(",").length),
  size: (parameter, text) => separated(parameter, text, "x", 2),
  decimal(parameter, text) {
    const value = decimal(`--${parameter.name}`, text, parameter);
    const tenths = Math.round(value * 10);
    if (tenths / 10 !== value) refuse(`--${parameter.name}: '${text}' has more than one decimal`);
    return tenths;
  },
  choice(parameter, text) {
    const place = parameter.values.indexOf(text);
    if (place < 0) {
      const expected = parameter.values.join(" or ");
      refuse(`--${parameter.name}: '${text}' is unknown; expected ${expected}`);
    }
    return place;
  },
  switch: () => 1,
  file: (parameter, text, files) => ({name: text, image: fileOf(parameter, text, files)}),
  curve: table,
  matrix: table,
};

// By name; null for what is neither given nor has a default.
function read(operation, texts, files) {
  const names = operation.parameters.map(({name}) => `--${name}`);
  if (operation.needs_parameter && !names.some((name) => name.slice(2) in texts)) {
    const expected = `${names.slice(0, -1).join(", ")} or ${names.at(-1)}`;
    const {name} = operation;
    refuse(`nothing is given for ${name} to do; expected ${expected}; see 'rast help ${name}'`);
  }
  const values = {};
  for (const parameter of operation.parameters) {
    const text = texts[parameter.name] ?? parameter.default;
    if (text === undefined && parameter.required) {
      const {name, argument} = parameter;
      refuse(`--${name} ${argument} is missing; see 'rast help ${operation.name}'`);
    }
    const none = parameter.kind === "switch" ? 0 : null;
    const reader = readers[parameter.kind];
    values[parameter.name] = text === undefined ? none : reader(parameter, text, files);
  }
  return values;
}

const isColour = (image) => image.planes.length === 3;

function area(width, height) {
  return {nLineWidth: width, nWidth: width, nHeight: height};
}

// Gray goes to the given index.
function planeSet(from, to, gray) {
  const at = (planes) => {
    const addresses = [0, 0, 0, 0];
    const first = planes.length === 3 ? 0 : gray;
    planes.forEach((plane, c) => (addresses[first + c] = plane));
    return addresses;
  };
  return {pIn: at(from), pOut: at(to), nSize: 2 ** 31 - 1};
}

// From all of an image to all of another; compose gets the addresses of the planes.
function made(rast, image, width, height, compose, cleared = 0) {
  const from = image.planes.map((plane) => rast.store(plane));
  const to = from.map(() => rast.fill(rast.allocate(width * height), width * height, cleared));
  compose(from, to);
  return {width, height, planes: to.map((plane) => rast.copy(plane, width * height))};
}

function filtered(context, image, apply, width = image.width, height = image.height, gray = 3) {
  return made(context.rast, image, width, height, (from, to) =>
    context.call(apply(area(image.width, image.height), planeSet(from, to, gray))),
  );
}

function outputSize(image, size) {
  return size ?? [image.width, image.height];
}

function checkEnd(what, start, length) {
  const last = 2 ** 31 - 1;
  if (start + length > last) refuse(`${what} reaches beyond column or line ${last}`);
}

// Onto a background, rounded to nearest.
export function flattened(image, background) {
  const planes = image.planes.map((plane) =>
    plane.map((v, i) =>
      Math.floor((v * image.alpha[i] + background * (255 - image.alpha[i]) + 127) / 255),
    ),
  );
  return {width: image.width, height: image.height, planes};
}

// The placement of both overlays, refused where the library leaves it to its caller.
function placement(image, {with: {name, image: given}, flatten, at, base, size}) {
  if (given.alpha && flatten === null) {
    refuse("PNG with transparency is not supported; give --flatten black or --flatten white");
  }
  const overlay = given.alpha ? flattened(given, flatten * 255) : given;
  if (isColour(overlay) !== isColour(image)) {
    const kind = isColour(image) ? "colour" : "gray";
    refuse(`the page is ${kind} and the overlay ${name} is not; give one of the same kind`);
  }
  const [width, height] = outputSize(image, size);
  checkEnd("the overlay", at[0], overlay.width);
  checkEnd("the overlay", at[1], overlay.height);
  checkEnd("the page", base[0], image.width);
  checkEnd("the page", base[1], image.height);
  const left = Math.min(base[0], at[0]);
  const top = Math.min(base[0], at[1]);
  if (left >= width) {
    refuse(
      `the leftmost image begins at column ${left} and the output page has only ${width} columns`,
    );
  }
  if (top >= height) {
    refuse(
      `composition starts at line ${top}, the smaller of --base X and --at Y, and the output ` +
        `page has only ${height} lines`,
    );
  }
  const record = (planes) => ({
    pOvl: [...planes, 0, 0, 0].slice(0, 4), nOvlLineWidth: overlay.width,
    nOvlWidth: overlay.width, nOvlHeight: overlay.height, nBaseX: base[0], nBaseY: base[1],
    nOvlX: at[0], nOvlY: at[1], nOutWidth: width, nOutHeight: height,
  });
  return {overlay, width, height, left, top, record};
}

// How many pixels two rectangles share, each {x, y, right, bottom}.
function shared(a, b) {
  const columns = Math.min(a.right, b.right) - Math.max(a.x, b.x);
  const lines = Math.min(a.bottom, b.bottom) - Math.max(a.y, b.y);
  return Math.max(columns, 0) * Math.max(lines, 0);
}

// How many pixels of each source are consumed: the overlay's where the page alone lies and the
// page's where the overlay lies. Where both lie, the overlay's next pixel is looked at.
function consumed(image, {overlay, width, height, left, top}, at, base) {
  const within = (x, y, of) => ({
    x: Math.max(x, left), y: Math.max(y, top),
    right: Math.min(x + of.width, width), bottom: Math.min(y + of.height, height),
  });
  const page = within(...base, image);
  const over = within(...at, overlay);
  const both = shared(page, over);
  return {ofPage: shared(over, over), ofOverlay: shared(page, page) - both + (both ? 1 : 0)};
}

function padded(rast, pixels, count, sample) {
  const size = Math.max(pixels.length, 3 * count);
  const address = rast.store(pixels, size);
  rast.fill(address + pixels.length, size - pixels.length, sample);
  return address;
}

function checkShift(image, x, y, width, height) {
  checkEnd("the page", x, image.width);
  checkEnd("the page", y, image.height);
  const columns = image.width + x;
  const lines = image.height + y;
  if (columns < 1) refuse(`--x ${x} leaves none of the ${image.width} columns`);
  if (lines < 1) refuse(`--y ${y} leaves none of the ${image.height} lines`);
  if (x >= 0) {
    if (x >= width) refuse(`--x ${x} lies beyond the ${width} columns of the output page`);
    if (y >= height) refuse(`--y ${y} lies beyond the ${height} lines of the output page`);
    if (y < 0) refuse(`--y ${y} is only possible together with a negative --x`);
  } else {
    if (y > 0) refuse(`--y ${y} is not possible together with a negative --x`);
    if (columns > width) {
      refuse(`${columns} columns are left, more than the ${width} of the output page`);
    }
    if (lines > height) {
      refuse(`${lines} lines are left, more than the ${height} of the output page`);
    }
  }
}

function reduced(count, ratio) {
  return Math.floor(((count - 1) * ratio) / 1000) + 1;
}

const operations = {
  expgamma(context, image, {threshold, offset, gain}) {
    const curve = {nThreshold: threshold, nOffset: offset, nGain: gain};
    return filtered(context, image, (a, planes) => context.rast.rastExpGamma(a, planes, curve, 0));
  },

  colgamma(context, image, {curve}) {
    const stored = context.rast.store(Uint8Array.from(curve));
    return filtered(context, image, (a, planes) => context.rast.rastColGamma(a, planes, stored));
  },

  binconv(context, image, {color}) {
    return filtered(context, image, (a, planes) => context.rast.rastBinConv(a, planes, color));
  },

  satadjust(context, image, {mode}) {
    return filtered(context, image, (a, planes) => context.rast.rastSatAdjust(a, planes, mode));
  },

  hueadjust(context, image, {matrix, reverse, mirror}) {
    const param = {nMatrix: matrix, nReverse: reverse, nMirror: mirror};
    const lut = mirror ? 0 : context.rast.record("RastHueLut", {nReverse: reverse});
    return filtered(context, image, (a, planes) =>
      context.rast.rastHueAdjust(a, planes, param, lut),
    );
  },

  colbalance(context, image, {curve, level}) {
    const param = {nCurve: curve, nLevel: level};
    const lut = context.rast.allocate(1025);
    return filtered(context, image, (a, planes) =>
      context.rast.rastColBalance(a, planes, param, lut),
    );
  },

  overlay(context, image, values) {
    const {rast} = context;
    const {overlay, width, height, record} = placement(image, values);
    const param = record(overlay.planes.map((plane) => rast.store(plane)));
    const planeMode = isColour(image) ? 0 : 2;
    const {mode, density, white} = values;
    const apply = (a, planes) =>
      rast.rastOverlay(a, planes, param, planeMode, 0, mode, density, white);
    return filtered(context, image, apply, width, height, 0);
  },

  overlayrgb(context, image, values) {
    const {rast} = context;
    const {at, base, white} = values;
    const placed = placement(image, values);
    const {ofPage, ofOverlay} = consumed(image, placed, at, base);
    const {overlay, width, height, record} = placed;
    const page = padded(rast, together(image), ofPage, white * 255);
    const param = record([padded(rast, together(overlay), ofOverlay, white * 255)]);
    const out = rast.allocate(3 * width * height);
    const density = 1;
    const a = area(image.width, image.height);
    context.call(rast.rastOverlayRGB24bpp(a, [page, out], param, 0, 0, 0, density, white));
    return {width, height, planes: apart(rast.copy(out, 3 * width * height), 3)};
  },

  rotate(context, image, {turn}) {
    const {rast} = context;
    const mostBands = 128;
    const bandHeight = Math.ceil(image.height / mostBands);
    const [width, height] = [image.height, image.width];
    const mode = turn === 0 ? 2 : 0;
    const bands = rast.record("RastRotateCtx", {});
    const bandOf = (planes, line, lines) => {
      const at = planes.map((plane) => plane + line * image.width);
      return {
        nPlaneNum: planes.length, pIn: at, pOut: at, nLines: lines, nOutLineWidth: width,
        nOutHeight: height,
      };
    };
    return made(rast, image, width, height, (from, to) => {
      for (let line = 0; line < image.height; line += bandHeight) {
        const band = bandOf(from, line, Math.min(bandHeight, image.height - line));
        context.call(
          rast.rastRotateInputAccumulate(area(image.width, image.height), band, bands, mode),
        );
      }
      context.call(rast.rastRotateSockOutput(bandOf(to, 0, height), bands));
    });
  },

  zoom(context, image, {percent, x, y}) {
    const param = {nPlaneNum: image.planes.length, nRatioX: x ?? percent, nRatioY: y ?? percent};
    const width = reduced(image.width, param.nRatioX);
    const height = reduced(image.height, param.nRatioY);
    const apply = (a, planes) => context.rast.rastZoom(a, planes, param);
    return filtered(context, image, apply, width, height, 0);
  },

  // The page's lines only move up or down: what is shown of them is shifted to the right or left,
  // at their place in the output page.
  shift(context, image, {x, y, size, fill}) {
    const [width, height] = outputSize(image, size);
    checkShift(image, x, y, width, height);
    const shown = y < 0 ? image.height + y : Math.min(image.height, height - y);
    const param = {nShiftX: x, nOutLineWidth: width, nOutHeight: shown, nFillMode: fill};
    const compose = (from, to) => {
      const top = to.map((plane) => plane + Math.max(y, 0) * width);
      const planes = planeSet(from, top, 3);
      const planeMode = isColour(image) ? 0 : 1;
      context.call(context.rast.rastImageShift(area(image.width, shown), planes, param, planeMode));
    };
    const white = 2;
    return made(context.rast, image, width, height, compose, fill === white ? 255 : 0);
  },

  gray(context, image) {
    if (!isColour(image)) return image;
    const [red, green, blue] = image.planes;
    const luma = (r, i) => Math.floor((299 * r + 587 * green[i] + 114 * blue[i] + 500) / 1000);
    return {width: image.width, height: image.height, planes: [red.map(luma)]};
  },
};

function checkKind(operation, image) {
  const kind = isColour(image) ? "colour" : "gray";
  if (operation.pages.includes(kind)) return;
  const hint = isColour(image) ? "; the step 'gray' converts it" : "";
  refuse(
    `${operation.name} works on ${operation.pages.join(" and ")} pages only and this page is ` +
      kind + hint,
  );
}

// The image that a step makes of an image; known are the operations as the command lists them.
export function apply(rast, known, image, step, files) {
  const operation = known.find(({name}) => name === step.operation);
  const values = read(operation, step.values, files);
  checkKind(operation, image);
  const call = (result) => {
    if (result === results.ok || result === results.complete) return;
    refuse(`${operation.name} failed with result 0x${result.toString(16)}`);
  };
  try {
    return operations[operation.name]({rast, call}, image, values);
  } catch (error) {
    if (error instanceof OutOfMemory || error instanceof RangeError) {
      refuse(`not enough memory for this step: ${error.message}`);
    }
    throw error;
  } finally {
    rast.release();
  }
}

function quoted(text) {
  if (!/[\s"']/.test(text)) return text;
  return text.split('"').map((part) => `"${part}"`).join(`'"'`);
}

// As the command takes it.
export function chainText(steps) {
  const words = ({operation, values}) =>
    Object.entries(values).map(([name, text]) => (text === "" ? name : `${name}=${quoted(text)}`));
  return steps.map((step) => [step.operation, ...words(step)].join(" ")).join(" : ");
}

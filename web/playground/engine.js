// The chain library as a WebAssembly module. An image is {width, height, components, samples}: one
// component is gray, three are red, green and blue, next to each other.

// What the library does not accept, in its words. Steps count from 1; 0: no single step.
export class Refusal extends Error {
  constructor(message, step) {
    super(message);
    this.step = step;
  }
}

// What the C library would print has no descriptor to go to.
const badDescriptor = 8;

// Each run has an instance of its own: however it ends, its memory is given back.
function instantiate(module, page = {}) {
  const imports = {};
  for (const {module: from, name} of WebAssembly.Module.imports(module)) {
    (imports[from] ??= {})[name] = page[name] ?? (() => badDescriptor);
  }
  const {exports} = new WebAssembly.Instance(module, imports);
  exports._initialize();
  return exports;
}

function bytesAt({memory}, address, size) {
  return new Uint8Array(memory.buffer, address >>> 0, size);
}

function textAt(exports, address) {
  const bytes = bytesAt(exports, address);
  return new TextDecoder().decode(bytes.subarray(0, bytes.indexOf(0)));
}

function storeText(exports, text) {
  const bytes = new TextEncoder().encode(`${text}\0`);
  const address = exports.allocate(bytes.length);
  bytesAt(exports, address, bytes.length).set(bytes);
  return address;
}

// The operations, as the library describes them.
export function describe(module) {
  const exports = instantiate(module);
  return JSON.parse(textAt(exports, exports.describe()));
}

// The image that a chain makes of a page. readImage gives an image by its name, on a background of
// 0 or 255, or on none: -1, with the remedy for a transparent image. Curves and matrices are read
// from texts, by their names.
export function run(module, chain, page, readImage, texts) {
  let result;
  let written = 0;
  let overlay;
  let fault; // of readImage
  const exports = instantiate(module, {
    readLines(source, line, count, to) {
      const {width, components, samples} = source === 0 ? page : overlay;
      const lineBytes = width * components;
      const lines = samples.subarray(line * lineBytes, (line + count) * lineBytes);
      bytesAt(exports, to, lines.length).set(lines);
    },
    beginPage(width, height, components) {
      try {
        const samples = new Uint8Array(width * height * components);
        result = {width, height, components, samples};
        return true;
      } catch {
        return false;
      }
    },
    writeLines(from, count) {
      const size = count * result.width * result.components;
      result.samples.set(bytesAt(exports, from, size), written);
      written += size;
    },
    openImage(name, background, remedy, ...members) {
      try {
        overlay = readImage(textAt(exports, name), background, textAt(exports, remedy));
      } catch (error) {
        fault = error;
        return false;
      }
      const {width, height, components} = overlay;
      const view = new DataView(exports.memory.buffer);
      [width, height, components].forEach((value, i) => view.setUint32(members[i], value, true));
      return true;
    },
    readText(name) {
      const text = texts.get(textAt(exports, name));
      return text === undefined ? 0 : storeText(exports, text);
    },
    refuse(message, step) {
      throw new Refusal(fault?.message ?? textAt(exports, message), step);
    },
  });
  exports.run(storeText(exports, chain), page.width, page.height, page.components);
  return result;
}

// Works on images away from the page, which stays at hand meanwhile. Each message asks for one kind
// of work and is answered by one with its number.
import {describe, run} from "./engine.js";
import {decode, encodePng, encodePnm, flattened, opaque, transparent} from "./images.js";

let engine; // module
const images = new Map(); // by name
let result; // of the last chain

const isColor = ({components}) => components === 3;

// As a browser shows it.
async function shown(image) {
  const {width, height, components, samples} = image;
  const [green, blue] = isColor(image) ? [1, 2] : [0, 0];
  const pixels = new Uint8ClampedArray(4 * width * height).fill(255);
  for (let to = 0, from = 0; to < pixels.length; to += 4, from += components) {
    pixels[to] = samples[from];
    pixels[to + 1] = samples[from + green];
    pixels[to + 2] = samples[from + blue];
  }
  const bitmap = await createImageBitmap(new ImageData(pixels, width, height));
  return {width, height, isColor: isColor(image), bitmap};
}

function keep(name, image) {
  images.set(name, image);
  const {width, height, alpha} = image;
  return {width, height, isColor: isColor(image), isTransparent: alpha !== undefined};
}

const work = {
  start({module}) {
    engine = new WebAssembly.Module(module);
    return describe(engine);
  },

  // Null where only the browser may be able to read the file.
  async read({name, bytes}) {
    const image = await decode(bytes);
    return image && keep(name, image);
  },

  // Pixels that the browser has read.
  take({name, width, height, pixels}) {
    const {alpha, ...image} = transparent(width, height, 3, pixels);
    return keep(name, alpha.every((v) => v === 255) ? image : {...image, alpha});
  },

  flatten({name, as}) {
    const white = 255;
    return keep(as, flattened(images.get(name), white));
  },

  show: ({name}) => shown(images.get(name)),

  // Without a step, the page stays as it is.
  async run({page, chain, texts}) {
    const overlay = (name, ...rest) => opaque(name, images.get(name), ...rest);
    const began = performance.now();
    const image = images.get(page);
    result = chain === "" ? image : run(engine, chain, image, overlay, texts);
    const milliseconds = performance.now() - began;
    return {...(await shown(result)), milliseconds};
  },

  // An image by its name, or the last result.
  save({name, format}) {
    const image = name ? images.get(name) : result;
    return format === "png" ? encodePng(image) : encodePnm(image);
  },
};

onmessage = async ({data: {id, kind, given}}) => {
  try {
    const answer = await work[kind](given);
    postMessage({id, answer}, [answer?.bitmap, answer?.buffer].filter(Boolean));
  } catch (error) {
    postMessage({id, fault: {message: error.message, step: error.step}});
  }
};

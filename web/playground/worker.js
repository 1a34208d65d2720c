// Works on images away from the page, which stays at hand meanwhile. Each message asks for one kind
// of work and is answered by one with its number.
import {apart, decode, encodePng, encodePnm} from "./images.js";
import {apply, flattened} from "./operations.js";
import {Rast} from "./rast.js";

let rast;
let known;
const images = new Map(); // by name
let finished = []; // by the steps of the last chain: {key, image, milliseconds}
let result; // of the last chain

// As a browser shows it.
async function shown({width, height, planes}) {
  const pixels = new Uint8ClampedArray(4 * width * height).fill(255);
  const [red, green, blue] = planes.length === 3 ? planes : [planes[0], planes[0], planes[0]];
  for (let i = 0; i < red.length; ++i) {
    pixels[4 * i] = red[i];
    pixels[4 * i + 1] = green[i];
    pixels[4 * i + 2] = blue[i];
  }
  const bitmap = await createImageBitmap(new ImageData(pixels, width, height));
  return {width, height, colour: planes.length === 3, bitmap};
}

function keep(name, image) {
  images.set(name, image);
  finished = [];
  const {width, height, planes, alpha} = image;
  return {width, height, colour: planes.length === 3, transparent: alpha !== undefined};
}

const work = {
  async start({module, operations}) {
    known = operations;
    rast = await Rast.load(module, (line) => console.log(line));
  },

  // Null where only the browser may be able to read the file.
  async read({name, bytes}) {
    const image = await decode(bytes);
    return image && keep(name, image);
  },

  // Pixels that the browser has read.
  take({name, width, height, pixels}) {
    const [red, green, blue, alpha] = apart(pixels, 4);
    const image = {width, height, planes: [red, green, blue]};
    return keep(name, alpha.every((v) => v === 255) ? image : {...image, alpha});
  },

  flatten({name, as}) {
    const white = 255;
    return keep(as, flattened(images.get(name), white));
  },

  show: ({name}) => shown(images.get(name)),

  // Steps that are as they were before are not done again.
  async run({page, steps, texts}) {
    const files = new Map([...images, ...texts]);
    let image = images.get(page);
    let key = page;
    steps.forEach((step, i) => {
      key += JSON.stringify([step, Object.values(step.values).map((text) => texts.get(text))]);
      if (finished[i]?.key !== key) {
        finished.length = i;
        const began = performance.now();
        try {
          finished.push({key, image: apply(rast, known, image, step, files)});
        } catch (error) {
          throw Object.assign(error, {step: i});
        }
        finished[i].milliseconds = performance.now() - began;
      }
      image = finished[i].image;
    });
    finished.length = steps.length;
    const milliseconds = finished.reduce((sum, one) => sum + one.milliseconds, 0);
    result = image;
    return {...(await shown(image)), milliseconds};
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

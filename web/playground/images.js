// Files of page images, as images and back: exact, without the browser's idea of colors. An image is
// {width, height, components, samples}, with transparency also alpha, a sample for each pixel.

const ascii = (bytes) => String.fromCharCode(...bytes);
const pngSignature = Uint8Array.of(137, 80, 78, 71, 13, 10, 26, 10);

// PGM, PPM and the usual PNG, of one page; null for anything else.
export async function decode(bytes) {
  if (/^P[56]/.test(ascii(bytes.subarray(0, 2)))) return decodePnm(bytes);
  if (pngSignature.every((byte, i) => bytes[i] === byte)) return decodePng(bytes);
  return null;
}

function decodePnm(bytes) {
  const comments = "(?:#.*[\\r\\n]|\\s)";
  const number = `${comments}+(\\d+)`;
  const header = new RegExp(`^P([56])${number}${number}${number}${comments}`);
  const found = header.exec(ascii(bytes.subarray(0, 4096)));
  if (!found) throw new Error("the header of this PGM or PPM is damaged");
  const [width, height, maximum] = found.slice(2, 5).map(Number);
  if (maximum !== 255) throw new Error(`a maximum value of ${maximum} is not supported; use 255`);
  const components = found[1] === "6" ? 3 : 1;
  const samples = bytes.subarray(found[0].length, found[0].length + width * height * components);
  if (width * height === 0) throw new Error("the page has no pixels");
  if (samples.length < width * height * components) throw new Error("the file ends early");
  if (bytes.length > found[0].length + samples.length) {
    throw new Error("more follows the first page; the playground takes files of one page");
  }
  return {width, height, components, samples};
}

// From pixels whose last sample is alpha.
export function transparent(width, height, components, pixels) {
  const samples = new Uint8Array(width * height * components);
  const alpha = new Uint8Array(width * height);
  for (let i = 0, from = 0, to = 0; i < alpha.length; ++i) {
    for (let c = 0; c < components; ++c) samples[to++] = pixels[from++];
    alpha[i] = pixels[from++];
  }
  return {width, height, components, samples, alpha};
}

// On a background, rounded to nearest.
export function flattened({width, height, components, samples, alpha}, background) {
  const opaque = samples.map((v, i) => {
    const a = alpha[Math.floor(i / components)];
    return Math.floor((v * a + background * (255 - a) + 127) / 255);
  });
  return {width, height, components, samples: opaque};
}

// For an overlay, on the background that the step names, or -1. Refused as by the command.
export function opaque(name, image, background, remedy) {
  if (!image.alpha) return image;
  if (background >= 0) return flattened(image, background);
  throw new Error(`${name}: page 1: PNG with transparency is not supported; ${remedy}`);
}

export function encodePnm({width, height, components, samples}) {
  const kind = components === 3 ? 6 : 5;
  const header = new TextEncoder().encode(`P${kind}\n${width} ${height}\n255\n`);
  return joined([header, samples]);
}

function joined(parts) {
  const bytes = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
  let end = 0;
  for (const part of parts) {
    bytes.set(part, end);
    end += part.length;
  }
  return bytes;
}

async function through(stream, bytes) {
  const made = new Blob([bytes]).stream().pipeThrough(stream);
  return new Uint8Array(await new Response(made).arrayBuffer());
}

// By the number in the header: samples of a pixel.
const pngSamples = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4};

function chunksOf(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const chunks = [];
  for (let at = 8; at + 12 <= bytes.length; ) {
    const size = view.getUint32(at);
    const name = ascii(bytes.subarray(at + 4, at + 8));
    chunks.push({name, data: bytes.subarray(at + 8, at + 8 + size)});
    at += 12 + size;
    if (name === "IEND" && at < bytes.length) {
      throw new Error("more follows the first page; the playground takes files of one page");
    }
  }
  return chunks;
}

// Null for the rare kinds: interlaced, of 16 bits, or with a transparent color.
async function decodePng(bytes) {
  const chunks = chunksOf(bytes);
  const find = (name) => chunks.find((chunk) => chunk.name === name)?.data;
  const header = find("IHDR");
  if (header?.length !== 13 || !find("IEND")) throw new Error("the PNG is damaged");
  const view = new DataView(header.buffer, header.byteOffset);
  const [width, height] = [view.getUint32(0), view.getUint32(4)];
  const [depth, kind, , , interlace] = header.subarray(8);
  const isPalette = kind === 3;
  if (depth === 16 || interlace || !(kind in pngSamples)) return null;
  if (find("tRNS") && !isPalette) return null;
  const data = joined(chunks.filter(({name}) => name === "IDAT").map((chunk) => chunk.data));
  const lines = await through(new DecompressionStream("deflate"), data);
  const lineBytes = Math.ceil((width * depth * pngSamples[kind]) / 8);
  if (lines.length < (lineBytes + 1) * height) throw new Error("the PNG is damaged");
  const packed = unfiltered(lines, lineBytes, height, Math.ceil((depth * pngSamples[kind]) / 8));
  const samples = depth === 8 ? packed : unpacked(packed, width, height, lineBytes, depth);
  if (isPalette) return colored(samples, width, height, find("PLTE"), find("tRNS"));
  if (depth < 8) samples.forEach((v, i) => (samples[i] = (v * 255) / (2 ** depth - 1)));
  const components = pngSamples[kind];
  if (kind > 3) return transparent(width, height, components - 1, samples);
  return {width, height, components, samples};
}

// By the filter that begins each line.
function unfiltered(lines, lineBytes, height, pixelBytes) {
  const out = new Uint8Array(lineBytes * height);
  for (let y = 0; y < height; ++y) {
    const from = y * (lineBytes + 1) + 1;
    const rule = lines[from - 1];
    const to = y * lineBytes;
    for (let x = 0; x < lineBytes; ++x) {
      const left = x < pixelBytes ? 0 : out[to + x - pixelBytes];
      const above = y === 0 ? 0 : out[to + x - lineBytes];
      const corner = y === 0 || x < pixelBytes ? 0 : out[to + x - lineBytes - pixelBytes];
      out[to + x] = lines[from + x] + predicted(rule, left, above, corner);
    }
  }
  return out;
}

function predicted(rule, left, above, corner) {
  switch (rule) {
    case 0:
      return 0;
    case 1:
      return left;
    case 2:
      return above;
    case 3:
      return (left + above) >> 1;
    case 4: {
      const byLeft = Math.abs(above - corner);
      const byAbove = Math.abs(left - corner);
      const byCorner = Math.abs(left + above - 2 * corner);
      if (byLeft <= byAbove && byLeft <= byCorner) return left;
      return byAbove <= byCorner ? above : corner;
    }
    default:
      throw new Error("the PNG is damaged");
  }
}

function unpacked(packed, width, height, lineBytes, depth) {
  const samples = new Uint8Array(width * height);
  for (let i = 0; i < samples.length; ++i) {
    const x = i % width;
    const byte = packed[Math.floor(i / width) * lineBytes + Math.floor((x * depth) / 8)];
    samples[i] = (byte >> (8 - depth - ((x * depth) % 8))) & (2 ** depth - 1);
  }
  return samples;
}

function colored(indices, width, height, palette, transparency) {
  const components = 3;
  const samples = new Uint8Array(components * indices.length);
  indices.forEach((v, i) => samples.set(palette.subarray(3 * v, 3 * v + 3), 3 * i));
  if (!transparency) return {width, height, components, samples};
  const alpha = indices.map((v) => transparency[v] ?? 255);
  return {width, height, components, samples, alpha};
}

const crcTable = Array.from({length: 256}, (_, byte) => {
  let crc = byte;
  for (let bit = 0; bit < 8; ++bit) crc = crc & 1 ? 0xedb88320 ^ (crc >>> 1) : crc >>> 1;
  return crc;
});

function chunk(name, data) {
  const out = new Uint8Array(data.length + 12);
  const view = new DataView(out.buffer);
  view.setUint32(0, data.length);
  out.set(new TextEncoder().encode(name), 4);
  out.set(data, 8);
  let crc = 0xffffffff;
  for (const byte of out.subarray(4, data.length + 8)) {
    crc = crcTable[(crc ^ byte) & 255] ^ (crc >>> 8);
  }
  view.setUint32(data.length + 8, ~crc);
  return out;
}

export async function encodePng({width, height, components, samples}) {
  const header = new Uint8Array(13);
  const view = new DataView(header.buffer);
  view.setUint32(0, width);
  view.setUint32(4, height);
  header.set([8, components === 3 ? 2 : 0], 8);
  const lineBytes = width * components;
  const lines = new Uint8Array((lineBytes + 1) * height);
  for (let y = 0; y < height; ++y) {
    lines.set(samples.subarray(y * lineBytes, (y + 1) * lineBytes), y * (lineBytes + 1) + 1);
  }
  const data = await through(new CompressionStream("deflate"), lines);
  const end = new Uint8Array(0);
  return joined([pngSignature, chunk("IHDR", header), chunk("IDAT", data), chunk("IEND", end)]);
}

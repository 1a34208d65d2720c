// The chain library in WebAssembly against the command: RAST names it, RAST_WASM the module.
import assert from "node:assert/strict";
import {execFileSync, spawnSync} from "node:child_process";
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {after, test} from "node:test";
import {chainText} from "../../web/playground/chain.js";
import {describe, Refusal, run} from "../../web/playground/engine.js";
import {decode, encodePng, encodePnm, opaque} from "../../web/playground/images.js";

const module = new WebAssembly.Module(readFileSync(process.env.RAST_WASM));
const known = describe(module);
const folder = mkdtempSync(join(tmpdir(), "rast-"));
after(() => rmSync(folder, {recursive: true}));

// Numbers that are the same in every run.
let state = 1;
function below(limit) {
  state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
  return Math.floor((state / 2 ** 32) * limit);
}
const between = (low, high) => low + below(high - low + 1);
const oneOf = (values) => values[below(values.length)];

function picture(components, width = between(1, 70), height = between(1, 50)) {
  const samples = Uint8Array.from({length: width * height * components}, () => below(256));
  return {width, height, components, samples};
}

// What the command makes of an image, or the line it refuses it with.
function byCommand(image, chain, files) {
  for (const [name, file] of files) {
    writeFileSync(join(folder, name), typeof file === "string" ? file : file.bytes);
  }
  const options = {input: encodePnm(image), cwd: folder, maxBuffer: 2 ** 28};
  const done = spawnSync(process.env.RAST, ["chain", chain], options);
  return done.status === 0 ? done.stdout : done.stderr.toString();
}

function byModule(image, chain, files) {
  const readImage = (name, ...rest) => opaque(name, files.get(name), ...rest);
  try {
    return Buffer.from(encodePnm(run(module, chain, image, readImage, files)));
  } catch (error) {
    if (error instanceof Refusal) return error;
    throw error;
  }
}

const tally = {same: 0, refused: 0};

// The lines that the command may print: about the chain, its page or an image of its own.
function lines(chain, {message, step}) {
  const operations = chain.split(" : ").map((words) => words.split(" ")[0]);
  const place = `step ${step}, ${operations[step - 1]}: `;
  return [
    `rast: chain, step ${step}: ${message}\n`,
    `rast: chain, ${place}${message}\n`,
    `rast: standard input: page 1: ${operations.length > 1 ? place : ""}${message}\n`,
    `rast: ${message}\n`,
  ];
}

function compareText(image, chain, files = new Map()) {
  const expected = byCommand(image, chain, files);
  const actual = byModule(image, chain, files);
  const what = `${image.width} x ${image.height} x ${image.components}: ${chain}`;
  if (typeof expected === "string") {
    assert.ok(actual instanceof Refusal, `${what}: not refused as by the command: ${expected}`);
    assert.ok(lines(chain, actual).includes(expected), `${what}: ${expected} and not ${actual}`);
    ++tally.refused;
  } else {
    assert.ok(!(actual instanceof Refusal), `${what}: refused: ${actual.message}`);
    assert.ok(actual.equals(expected), `${what}: other bytes`);
    ++tally.same;
  }
  return typeof expected !== "string";
}

const compare = (image, steps, files) => compareText(image, chainText(steps), files);

function step(operation, values = {}) {
  const texts = Object.entries(values).filter(([, value]) => value !== undefined);
  return {operation, values: Object.fromEntries(texts.map(([name, v]) => [name, String(v)]))};
}

const size = () => oneOf([undefined, `${between(1, 90)}x${between(1, 70)}`]);
const flag = () => oneOf([undefined, ""]);

// Random values that suit an operation, most of the time; files get what they name.
const draw = {
  expgamma: () => ({threshold: below(256), offset: below(256), gain: oneOf([below(700), 65535])}),
  colgamma(files) {
    const numbers = Array.from({length: 256}, () => below(256));
    files.set("odd 'name\".txt", `# a curve\n${numbers.join(",")}`);
    return {curve: oneOf(["invert", "odd 'name\".txt", `gamma=${between(1, 100) / 10}`])};
  },
  binconv: () => ({color: below(6)}),
  satadjust: () => ({mode: oneOf(["lower", "raise"])}),
  hueadjust(files) {
    const number = () => oneOf([between(-300, 300), between(-32768, 32767)]);
    const numbers = Array.from({length: 15}, number);
    files.set("matrix", numbers.join("\n"));
    const matrix = oneOf([undefined, "sepia", "swap-rb", "grayscale", "matrix", "rotate=-33.5"]);
    return {matrix, reverse: flag(), mirror: flag()};
  },
  colbalance: () => ({
    curve: below(5), level: Array.from({length: 4}, () => below(12)).join(","),
  }),
  overlay(files, components) {
    return {
      ...draw.overlayrgb(files, oneOf([1, components, components, components])),
      mode: oneOf([undefined, "replace", "max", "ink"]), density: between(10, 100),
    };
  },
  overlayrgb(files, components = 3) {
    const image = picture(components);
    files.set("over lay.ppm", {...image, bytes: encodePnm(image)});
    const base = oneOf([undefined, `0,${below(60)}`, `${below(30)},${below(60)}`]);
    const at = oneOf([undefined, `${below(60)},${below(40)}`, `${below(9)},${below(9)}`]);
    return {with: "over lay.ppm", at, base, size: size(), white: flag()};
  },
  rotate: () => ({turn: oneOf(["cw", "ccw"])}),
  zoom: () => ({
    percent: oneOf([undefined, between(1, 1000) / 10]), x: oneOf([undefined, between(1, 1000)]),
    y: oneOf([undefined, 500, 333, between(501, 999)]),
  }),
  shift: () => ({
    ...oneOf([{x: below(20), y: below(20)}, {x: -below(9), y: -below(9)}, {x: between(-40, 70)}]),
    size: oneOf([undefined, undefined, size()]),
    fill: oneOf([undefined, "none", "black", "white"]),
  }),
  gray: () => ({}),
};

test("the operations are the command's", () => {
  const listed = JSON.parse(execFileSync(process.env.RAST, ["ops", "--json"]));
  assert.deepEqual(Object.keys(draw), known.map(({name}) => name));
  assert.deepEqual(listed.map(({name}) => name), known.map(({name}) => name));
});

for (const {name, pages} of known) {
  test(`${name} gives the command's bytes and refusals`, () => {
    let same = 0;
    for (let i = 0; i < 40; ++i) {
      const components = pages.includes("gray") && (i % 2 || pages.length === 1) ? 1 : 3;
      const files = new Map();
      const image = picture(components);
      same += compare(image, [step(name, draw[name](files, components))], files);
    }
    assert.ok(same >= 10, `${same} of the cases were not refused`);
  });
}

test("high pages turn as by the command", () => {
  for (const height of [127, 128, 129, 255, 256, 257, 1000]) {
    compare(picture(3, 5, height), [step("rotate", {turn: "cw"})]);
    compare(picture(1, 3, height), [step("rotate", {turn: "ccw"})]);
  }
});

test("an overlay across the corner takes background as by the command", () => {
  for (const white of [undefined, ""]) {
    const image = picture(3, 8, 8);
    const files = new Map([["corner", {...image, bytes: encodePnm(image)}]]);
    const values = {with: "corner", at: "25,15", white};
    assert.ok(compare(picture(3, 30, 20), [step("overlayrgb", values)], files));
  }
});

test("chains give the command's bytes", () => {
  for (let i = 0; i < 60; ++i) {
    const components = oneOf([1, 3]);
    const files = new Map();
    const names = Array.from({length: between(2, 4)}, () => oneOf(known).name);
    const steps = names.map((name) => step(name, draw[name](files, components)));
    compare(picture(components, 40, 33), steps, files);
  }
});

test("every gamma and every angle make the command's numbers", () => {
  const page = picture(3, 64, 64);
  const samples = Uint8Array.from({length: 256}, (_, i) => i);
  const ramp = {width: 256, height: 1, components: 1, samples};
  for (let i = 10; i <= 1000; i += i < 300 ? 3 : 10) {
    assert.ok(compare(ramp, [step("colgamma", {curve: `gamma=${i / 100}`})]));
  }
  for (let degrees = -360; degrees <= 360; degrees += 3) {
    assert.ok(compare(page, [step("hueadjust", {matrix: `rotate=${degrees}`})]));
  }
  for (let i = 0; i < 60; ++i) {
    assert.ok(compare(page, [step("hueadjust", {matrix: `rotate=${below(36000) / 100}`})]));
  }
});

test("values beyond the command's limits are refused with its words", () => {
  const page = picture(3, 9, 7);
  const texts = new Map([
    ["short", "1 2 3"], ["long", "1\n".repeat(300)], ["bad", "1, 2,x # y"], ["high", "\n70000"],
  ]);
  for (const [operation, values] of [
    ["shift", {x: "1.5"}], ["shift", {x: "2147483648"}], ["shift", {size: "7"}],
    ["shift", {size: "0x7"}], ["shift", {size: "2x3x4"}], ["shift", {x: "2147483647"}],
    ["binconv", {color: "6"}], ["binconv", {color: "red"}], ["colbalance", {level: "1,2,3"}],
    ["colbalance", {level: "1,2,3,12"}], ["satadjust", {mode: "both"}], ["satadjust", {}],
    ["zoom", {percent: "33.33"}], ["zoom", {percent: "0"}], ["zoom", {percent: "100.1"}],
    ["zoom", {percent: "many"}], ["colgamma", {}], ["colgamma", {curve: "gamma=0.05"}],
    ["colgamma", {curve: "gamma=10.5"}], ["colgamma", {curve: "gamma="}],
    ["shift", {}], ["zoom", {}], ["hueadjust", {}], ["colbalance", {}], ["expgamma", {}],
    ["hueadjust", {matrix: "rotate=361"}], ["hueadjust", {matrix: "rotate=-400"}],
    ...["short", "long", "bad", "high"].flatMap((name) => [
      ["colgamma", {curve: name}], ["hueadjust", {matrix: name}],
    ]),
  ]) {
    const steps = [step(operation, values)];
    assert.ok(!compare(page, steps, texts), chainText(steps));
  }
});

test("numbers are written as for the command", () => {
  const page = picture(3, 9, 7);
  for (const number of ["1e0", "1E0", "+1", "0x1", " 1", "1 ", "Infinity", "nan", "1,5", "1..2", "--1"]) {
    for (const [operation, values] of [
      ["colgamma", {curve: `gamma=${number}`}], ["hueadjust", {matrix: `rotate=${number}`}],
      ["zoom", {percent: number}], ["shift", {x: number}], ["colbalance", {level: `${number},1,1,1`}],
    ]) {
      const chain = chainText([step(operation, values)]);
      assert.ok(!compareText(page, chain), chain);
    }
  }
  for (const number of ["1.", "1.0", ".5", "007", "1.00"]) {
    assert.ok(compare(page, [step("colgamma", {curve: `gamma=${number}`})]), number);
    assert.ok(compare(page, [step("zoom", {percent: number})]), number);
  }
});

test("texts of chains are read as by the command", () => {
  const page = picture(3, 9, 7);
  for (const text of [
    "shift,x=2,y=1:gray", "colgamma invert", "satadjust raise # comment", "gray\nrotate cw",
    "rotate 'cw'", "colbalance,level=1,2,3,4,curve=2",
  ]) {
    assert.ok(compareText(page, text), text);
  }
  for (const text of [
    "shift 'x=2", "satajust raise", "satadjust rais", "shift z=1", "shift x", "overlay white=1",
    "shift x=1 x=2", "rotate", "gray 5", "gray : rotate up", "gray: rotate cw", "nothing alike",
  ]) {
    assert.ok(!compareText(page, text), text);
  }
});

test("pages without room are refused", () => {
  const files = new Map([["logo", picture(3, 3, 3)]]);
  const refused = (chain, message, at) =>
    assert.throws(() => run(module, chain, picture(3, 9, 7), (name) => files.get(name), files), {
      constructor: Refusal, message, step: at,
    });
  refused("shift size=1000x2147483647", "not enough memory", 0);
  const size = 46000 ** 2 * 3;
  const message = `not enough memory for a page of ${size} bytes`;
  refused("shift x=0 : overlay with=logo size=46000x46000", message, 2);
});

test("transparent overlays are flattened as by the command", async () => {
  const page = picture(3, 40, 30);
  for (const kind of ["RGBA", "LA", "P"]) {
    const script = `import random, sys; from PIL import Image; random.seed(1)
image = Image.frombytes("RGBA", (13, 9), random.randbytes(13 * 9 * 4))
image = image.quantize(40) if sys.argv[1] == "P" else image.convert(sys.argv[1])
image.save(sys.argv[2])`;
    const path = join(folder, "clear.png");
    execFileSync("/usr/bin/python3", ["-c", script, kind, path]);
    const bytes = readFileSync(path);
    const files = new Map([["clear.png", {...(await decode(bytes)), bytes}]]);
    assert.ok(files.get("clear.png").alpha, kind);
    const image = kind === "LA" ? picture(1, 40, 30) : page;
    for (const flatten of ["white", "black"]) {
      assert.ok(compare(image, [step("overlay", {with: "clear.png", flatten})], files), kind);
    }
    assert.ok(!compare(image, [step("overlay", {with: "clear.png"})], files), kind);
  }
});

test("files are read as by the command, and written so that it reads them", async () => {
  const script = `import random, sys; from PIL import Image; random.seed(2)
mode, path = sys.argv[1:]
image = Image.effect_noise((37, 23), 90).rotate(30)
image = Image.merge("RGB", (image, image.rotate(9), image.rotate(99)))
image = image.quantize(int(mode[1:])) if mode[0] == "P" else image.convert(mode)
image.save(path, bits=2) if mode == "P4" else image.save(path)`;
  const path = join(folder, "file.png");
  for (const mode of ["RGB", "L", "1", "P256", "P16", "P4", "P2"]) {
    execFileSync("/usr/bin/python3", ["-c", script, mode, path]);
    const native = execFileSync(process.env.RAST, ["shift", "--x=0", path]);
    const image = await decode(readFileSync(path));
    assert.ok(Buffer.from(encodePnm(image)).equals(native), mode);
    writeFileSync(path, await encodePng(image));
    assert.ok(execFileSync(process.env.RAST, ["shift", "--x=0", path]).equals(native), mode);
    assert.ok(Buffer.from(encodePnm(await decode(native))).equals(native), mode);
  }
  assert.equal(await decode(Buffer.from("GIF89a")), null);
  for (const text of ["P5 3 3 255\nshort", "P6 0 2 255\n", "P5 x", "P5 1 1 65535\nab"]) {
    await assert.rejects(decode(Buffer.from(text)), Error, text);
  }
  const png = readFileSync(path);
  await assert.rejects(decode(png.subarray(0, png.length - 30)));
});

test("every filter of PNG is undone as by the command", async () => {
  const script = String.raw`import random, struct, sys, zlib; random.seed(3)
def chunk(name, data):
    return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))
lines = b"".join(bytes((y % 5,)) + random.randbytes(3 * 50) for y in range(100))
header = struct.pack(">IIBBBBB", 50, 100, 8, 2, 0, 0, 0)
with open(sys.argv[1], "wb") as out:
    out.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header))
    out.write(chunk(b"IDAT", zlib.compress(lines)) + chunk(b"IEND", b""))`;
  const path = join(folder, "filters.png");
  execFileSync("/usr/bin/python3", ["-c", script, path]);
  const native = execFileSync(process.env.RAST, ["shift", "--x=0", path]);
  assert.ok(Buffer.from(encodePnm(await decode(readFileSync(path)))).equals(native));
});

after(() => {
  console.log(`chains: ${tally.same} with the same bytes, ${tally.refused} refused alike`);
});

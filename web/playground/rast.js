// The library as a WebAssembly module: its functions, and its records as 32-bit memory holds them.

// Each record's members in their order. An array of arrays is written as one array.
export const records = {
  RastArea: {
    nLineWidth: "int32_t", nStartX: "int32_t", nWidth: "int32_t", nStartY: "int32_t",
    nHeight: "int32_t",
  },
  RastPlaneSet: {pIn: "pointer[4]", pOut: "pointer[4]", nSize: "int32_t"},
  RastExpGammaParam: {nThreshold: "uint8_t", nOffset: "uint8_t", nGain: "uint16_t"},
  RastHueParam: {nMatrix: "int16_t[3][5]", nReverse: "int16_t", nMirror: "int16_t"},
  RastHueLutRow: {nProd: "int32_t[3][256]", nOutOffset: "int32_t"},
  RastHueLut: {row: "RastHueLutRow[3]", nReverse: "int16_t", nBuilt: "int16_t"},
  RastColBalanceParam: {nCurve: "uint8_t", nLevel: "int16_t[4]"},
  RastOverlayParam: {
    pOvl: "pointer[4]", nOvlLineWidth: "int32_t", nReserved0: "uint32_t", nOvlStartX: "int32_t",
    nOvlWidth: "int32_t", nOvlStartY: "int32_t", nOvlHeight: "int32_t", nReserved1: "uint32_t",
    nBaseX: "int32_t", nBaseY: "int32_t", nOvlX: "int32_t", nOvlY: "int32_t",
    nOutWidth: "int32_t", nOutHeight: "int32_t",
  },
  RastRotateBand: {
    nPlaneNum: "int32_t", pIn: "pointer[4]", pOut: "pointer[4]", nLines: "int32_t",
    nOutStartX: "int32_t", nOutStartY: "int32_t", nOutLineWidth: "int32_t",
    nOutHeight: "int32_t", nReserved: "int32_t",
  },
  RastRotateBandEntry: {pPlane: "pointer[4]", nLines: "int32_t"},
  RastRotateCtx: {
    nPlaneNum: "int32_t", nOutStartX: "int32_t", nOutStartY: "int32_t", nOutLineWidth: "int32_t",
    nOutHeight: "int32_t", nRotWidth: "int32_t", nRotHeight: "int32_t", nReserved: "int32_t",
    stArea: "RastArea", nRotate: "int32_t", stBand: "RastRotateBandEntry[128]",
    pCurBand: "pointer", nCurLine: "int32_t", nSrcX: "int32_t", nOutPos: "int32_t",
    nBandNum: "int32_t", nTotalLines: "int32_t",
  },
  RastZoomParam: {nPlaneNum: "uint32_t", nRatioX: "uint32_t", nRatioY: "uint32_t"},
  RastShiftParam: {
    nShiftX: "int32_t", nShiftY: "int32_t", nOutLineWidth: "int32_t", nOutHeight: "int32_t",
    nFillMode: "uint32_t",
  },
};

// The types of their arguments.
export const functions = {
  rastExpGamma: ["RastArea*", "RastPlaneSet*", "RastExpGammaParam*", "uint8_t*"],
  rastColGamma: ["RastArea*", "RastPlaneSet*", "uint8_t*"],
  rastBinConv: ["RastArea*", "RastPlaneSet*", "uint32_t"],
  rastSatAdjust: ["RastArea*", "RastPlaneSet*", "uint32_t"],
  rastHueAdjust: ["RastArea*", "RastPlaneSet*", "RastHueParam*", "RastHueLut*"],
  rastColBalance: ["RastArea*", "RastPlaneSet*", "RastColBalanceParam*", "uint8_t*"],
  rastOverlayRGB24bpp: [
    "RastArea*", "uint8_t**", "RastOverlayParam*", "uint32_t", "uint32_t", "uint32_t", "uint32_t",
    "uint32_t",
  ],
  rastOverlay: [
    "RastArea*", "RastPlaneSet*", "RastOverlayParam*", "uint32_t", "uint32_t", "uint32_t",
    "uint32_t", "uint32_t",
  ],
  rastRotateInputAccumulate: ["RastArea*", "RastRotateBand*", "RastRotateCtx*", "uint32_t"],
  rastRotateSockOutput: ["RastRotateBand*", "RastRotateCtx*"],
  rastZoom: ["RastArea*", "RastPlaneSet*", "RastZoomParam*"],
  rastImageShift: ["RastArea*", "RastPlaneSet*", "RastShiftParam*", "uint32_t"],
};

export const results = {ok: 0, complete: 16};

const scalars = {
  uint8_t: {size: 1, set: "setUint8"},
  int16_t: {size: 2, set: "setInt16"},
  uint16_t: {size: 2, set: "setUint16"},
  int32_t: {size: 4, set: "setInt32"},
  uint32_t: {size: 4, set: "setUint32"},
  pointer: {size: 4, set: "setUint32"},
};

// What a type takes: members at the next multiple of their alignment, as C lays them out.
function layoutOf(type) {
  if (scalars[type]) return {size: scalars[type].size, align: scalars[type].size};
  const members = {};
  let end = 0;
  let align = 1;
  for (const [name, declared] of Object.entries(records[type])) {
    const [element, ...counts] = declared.match(/\w+/g);
    const one = layoutOf(element);
    const offset = Math.ceil(end / one.align) * one.align;
    members[name] = {offset, element, size: one.size};
    end = offset + counts.reduce((size, count) => size * count, one.size);
    align = Math.max(align, one.align);
  }
  return {size: Math.ceil(end / align) * align, align, members};
}

export const layouts = {};
for (const record of Object.keys(records)) layouts[record] = layoutOf(record);

export class OutOfMemory extends Error {}

export class Rast {
  #memory;
  #exports;
  #allocated = [];

  // Whatever the library prints goes to print, line by line.
  static async load(module, print) {
    const rast = new Rast();
    const {instance} = await WebAssembly.instantiate(module, {
      wasi_snapshot_preview1: standardOutput(() => rast.#memory, print),
    });
    rast.#exports = instance.exports;
    rast.#memory = instance.exports.memory;
    instance.exports._initialize();
    for (const [name, types] of Object.entries(functions)) {
      rast[name] = (...values) => {
        const given = types.map((type, i) => rast.#argument(type, values[i]));
        return instance.exports[name](...given) >>> 0;
      };
    }
    return rast;
  }

  // Cleared memory, until release.
  allocate(size) {
    const address = size < 2 ** 31 ? this.#exports.malloc(size) >>> 0 : 0;
    if (address === 0) throw new OutOfMemory(`${size} bytes of memory cannot be had`);
    this.#allocated.push(address);
    return this.fill(address, size, 0);
  }

  fill(address, size, value) {
    new Uint8Array(this.#memory.buffer, address, size).fill(value);
    return address;
  }

  store(bytes, size = bytes.length) {
    const address = this.allocate(size);
    new Uint8Array(this.#memory.buffer, address).set(bytes);
    return address;
  }

  record(type, values) {
    const address = this.allocate(layouts[type].size);
    this.#write(new DataView(this.#memory.buffer), address, type, values);
    return address;
  }

  copy(address, size) {
    return new Uint8Array(this.#memory.buffer, address, size).slice();
  }

  release() {
    for (const address of this.#allocated) this.#exports.free(address);
    this.#allocated = [];
  }

  // Addresses and numbers pass; a record and an array of addresses are stored first.
  #argument(type, value) {
    if (typeof value === "number") return value;
    if (Array.isArray(value)) return this.store(new Uint8Array(new Uint32Array(value).buffer));
    return this.record(type.slice(0, -1), value);
  }

  // Members that are not given stay what they are.
  #write(view, address, type, values) {
    for (const [name, value] of Object.entries(values)) {
      const {offset, element, size} = layouts[type].members[name];
      const elements = Array.isArray(value) ? value : [value];
      elements.forEach((one, i) => {
        const at = address + offset + i * size;
        if (scalars[element]) view[scalars[element].set](at, one, true);
        else this.#write(view, at, element, one);
      });
    }
  }
}

// What the C library asks for to print. The descriptor is told to be a terminal, so that lines come
// when they are printed.
function standardOutput(memory, print) {
  const badDescriptor = 8;
  const noSeek = 70;
  const characterDevice = 2;
  const decoder = new TextDecoder();
  let line = "";
  return {
    fd_write(descriptor, vectors, count, written) {
      const view = new DataView(memory().buffer);
      let total = 0;
      for (let i = 0; i < count; ++i) {
        const start = view.getUint32(vectors + 8 * i, true);
        const size = view.getUint32(vectors + 8 * i + 4, true);
        line += decoder.decode(new Uint8Array(memory().buffer, start, size), {stream: true});
        total += size;
      }
      const lines = line.split("\n");
      line = lines.pop();
      lines.forEach(print);
      view.setUint32(written, total, true);
      return 0;
    },
    fd_fdstat_get(descriptor, status) {
      new Uint8Array(memory().buffer, status, 24).fill(0)[0] = characterDevice;
      return 0;
    },
    fd_seek: () => noSeek,
    fd_close: () => badDescriptor,
  };
}

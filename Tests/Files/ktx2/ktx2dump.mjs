// ktx-parse's view of KTX 2.0 files, run from the folder holding node_modules/ktx-parse:
//   node ktx2dump.mjs DIR dump FILE...   one line of JSON a file
//   node ktx2dump.mjs DIR write OUT      RGBA8 4x4, 3 levels, byte i of level L = i * 7 + L
import { readFileSync, writeFileSync } from 'node:fs';

const [dir, mode, ...rest] = process.argv.slice(2);
const ktx = await import(dir + '/node_modules/ktx-parse/dist/index.mjs');

// FNV-1a, to compare a level's bytes with the writer's.
const hash = (bytes) => bytes.reduce((h, b) => Math.imul(h ^ b, 0x01000193) >>> 0, 0x811c9dc5);

if (mode === 'dump') {
  for (const file of rest) {
    const c = ktx.read(new Uint8Array(readFileSync(file)));
    const d = c.dataFormatDescriptor[0];
    const kv = Object.fromEntries(Object.entries(c.keyValue).map(([k, v]) => [k, typeof v === 'string' ? v : 'bytes:' + v.byteLength]));
    console.log(JSON.stringify({
      vkFormat: c.vkFormat, typeSize: c.typeSize, width: c.pixelWidth, height: c.pixelHeight, depth: c.pixelDepth,
      layers: c.layerCount, faces: c.faceCount, levels: c.levels.length, scheme: c.supercompressionScheme,
      levelBytes: c.levels.map((l) => [l.levelData.byteLength, l.uncompressedByteLength, hash(l.levelData)]),
      model: d.colorModel, primaries: d.colorPrimaries, transfer: d.transferFunction, flags: d.flags,
      block: d.texelBlockDimension, bytesPlane0: d.bytesPlane[0],
      samples: d.samples.map((s) => [s.bitOffset, s.bitLength, s.channelType, s.sampleLower >>> 0, s.sampleUpper >>> 0]),
      kv,
    }));
  }
} else if (mode === 'write') {
  const c = ktx.createDefaultContainer();
  Object.assign(c, { vkFormat: 37, typeSize: 1, pixelWidth: 4, pixelHeight: 4, levelCount: 3 }); // R8G8B8A8_UNORM
  c.levels = [16, 4, 1].map((pixels, level) => {
    const data = new Uint8Array(pixels * 4).map((_, i) => (i * 7 + level) & 255);
    return { levelData: data, uncompressedByteLength: data.byteLength };
  });
  Object.assign(c.dataFormatDescriptor[0], {
    colorModel: ktx.KHR_DF_MODEL_RGBSDA, transferFunction: ktx.KHR_DF_TRANSFER_LINEAR, bytesPlane: [4, 0, 0, 0, 0, 0, 0, 0],
    samples: [0, 1, 2, 15].map((channel, i) => ({
      bitOffset: 8 * i, bitLength: 7, channelType: channel, samplePosition: [0, 0, 0, 0], sampleLower: 0, sampleUpper: 255,
    })),
  });
  c.keyValue.KTXorientation = 'ru';
  writeFileSync(rest[0], ktx.write(c));
}

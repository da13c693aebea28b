// Reads KTX 2.0 files with ktx-parse and prints what it found, or writes one
// from known pixels. Run from the folder that holds node_modules/ktx-parse.
//   node ktx2dump.mjs MODULE dump FILE...   one line of JSON a file
//   node ktx2dump.mjs MODULE write OUT      RGBA8 4x4, 3 levels, byte i of level L = i * 7 + L
import { readFileSync, writeFileSync } from 'node:fs';

const [moduleDir, mode, ...rest] = process.argv.slice(2);
const ktx = await import(moduleDir + '/node_modules/ktx-parse/dist/index.mjs');

// FNV-1a of a level's bytes, to compare with the writer's.
function hash(bytes) {
  let h = 0x811c9dc5;
  for (const b of bytes) h = Math.imul(h ^ b, 0x01000193) >>> 0;
  return h;
}

if (mode === 'dump') {
  for (const file of rest) {
    const c = ktx.read(new Uint8Array(readFileSync(file)));
    const d = c.dataFormatDescriptor[0];
    const kv = {};
    for (const [key, value] of Object.entries(c.keyValue))
      kv[key] = typeof value === 'string' ? value : 'bytes:' + value.byteLength;
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
  c.vkFormat = 37; // R8G8B8A8_UNORM
  c.typeSize = 1;
  c.pixelWidth = 4;
  c.pixelHeight = 4;
  c.levelCount = 3;
  c.levels = [16, 4, 1].map((pixels, level) => {
    const data = new Uint8Array(pixels * 4).map((_, i) => (i * 7 + level) & 255);
    return { levelData: data, uncompressedByteLength: data.byteLength };
  });
  const d = c.dataFormatDescriptor[0];
  d.colorModel = ktx.KHR_DF_MODEL_RGBSDA;
  d.transferFunction = ktx.KHR_DF_TRANSFER_LINEAR;
  d.bytesPlane = [4, 0, 0, 0, 0, 0, 0, 0];
  d.samples = [0, 1, 2, 15].map((channel, i) => ({
    bitOffset: 8 * i, bitLength: 7, channelType: channel, samplePosition: [0, 0, 0, 0], sampleLower: 0, sampleUpper: 255,
  }));
  c.keyValue.KTXorientation = 'ru';
  writeFileSync(rest[0], ktx.write(c));
}

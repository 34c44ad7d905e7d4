// Records what the packages' own code makes of a drawn pattern; the converted nets are held against it.
//
//   node record.mjs NODE_MODULES OUTPUT
//
// Writes OUTPUT/<net>.json: {"side": ..., "channels": ..., "outputs": {name: {"shape": [rows, columns, channels],
// "step": ..., "low": ..., "high": ..., "values": [...]}}}. The values are every step-th number of the output in the
// order row, column, channel; low and high are the bounds of all of them.
import fs from 'node:fs';
import path from 'node:path';
import { pathToFileURL } from 'node:url';

const [packages, output] = process.argv.slice(2).map((folder) => path.resolve(folder));
if (!output) throw new Error('usage: node record.mjs NODE_MODULES OUTPUT');

// face-api asks for a browser when it is imported; its arithmetic needs none.
const textEncoder = globalThis.TextEncoder;
globalThis.window = globalThis;
globalThis.document = { createElement: () => ({ getContext: () => null }) };
const load = (file) => import(pathToFileURL(path.join(packages, '@vladmandic', file)).href);
const faceapi = await load('face-api/dist/face-api.esm.js');
const human = await load('human/dist/tfjs.esm.js');

// Rings and waves of all widths; the test draws the same.
function pattern(side, channels) {
  const pixels = new Uint8Array(side * side * channels);
  let next = 0;
  for (let y = 0; y < side; y++) {
    for (let x = 0; x < side; x++) {
      for (let c = 0; c < channels; c++) pixels[next++] = ((x * x * 7 + y * y * 3 + x * y * 5) >> 6) + 60 * c;
    }
  }
  return pixels;
}

const mostValues = 400;

function summary(shape, values) {
  const step = Math.ceil(values.length / mostValues);
  const kept = values.filter((_, i) => i % step === 0);
  const bound = (choose) => values.reduce((a, b) => choose(a, b));
  return {
    shape, step, low: bound(Math.min), high: bound(Math.max), values: Array.from(kept, (value) => Number(value.toPrecision(8))),
  };
}

function save(net, side, channels, outputs) {
  const lines = Object.entries(outputs).map(([name, { shape, values }]) => `"${name}": ${JSON.stringify(summary(shape, values))}`);
  const text = `{"side": ${side}, "channels": ${channels}, "outputs": {\n${lines.join(',\n')}}}\n`;
  fs.writeFileSync(path.join(output, `${net}.json`), text);
}

function manifest(tf, folder, groups) {
  const files = groups.flatMap((group) => group.paths).map((file) => fs.readFileSync(path.join(folder, file)));
  const data = new Uint8Array(Buffer.concat(files));
  return { specs: groups.flatMap((group) => group.weights), data: data.buffer };
}

async function recordFaceApi(name, file, net, side, outputName) {
  const { tf } = faceapi;
  const folder = path.join(packages, '@vladmandic/face-api/model');
  const groups = JSON.parse(fs.readFileSync(path.join(folder, `${file}-weights_manifest.json`)));
  const { specs, data } = manifest(tf, folder, groups);
  net.loadFromWeightMap(tf.io.decodeWeights(data, specs));
  const picture = tf.tensor4d(Array.from(pattern(side, 3)), [1, side, side, 3], 'float32');
  const result = net.forwardInput(await faceapi.toNetInput(picture));
  save(name, side, 3, { [outputName]: { shape: [1, 1, result.size], values: Array.from(await result.data()) } });
}

async function recordHuman(name, side, channels, prepare, heads) {
  const tf = human;
  const folder = path.join(packages, '@vladmandic/human/models');
  const parsed = JSON.parse(fs.readFileSync(path.join(folder, `${name}.json`)));
  const { specs, data } = manifest(tf, folder, parsed.weightsManifest);
  const model = await tf.loadGraphModel({
    load: async () => ({ modelTopology: parsed.modelTopology, signature: parsed.signature, weightSpecs: specs, weightData: data }),
  });
  const nodes = parsed.modelTopology.node.map((node) => node.name);
  const pixels = tf.tensor4d(Array.from(pattern(side, channels)), [1, side, side, channels], 'float32');
  const names = Object.keys(heads).map((end) => nodes.find((node) => node.endsWith(end)));
  const results = [model.execute(prepare(tf, pixels), names)].flat();
  const outputs = {};
  for (const [i, head] of Object.values(heads).entries()) {
    const shape = results[i].shape.length === 4 ? results[i].shape.slice(1) : [1, 1, results[i].size];
    outputs[head] = { shape, values: Array.from(await results[i].data()) };
  }
  save(name.replace('movenet-lightning', 'movenet'), side, channels, outputs);
}

await faceapi.tf.setBackend('cpu');
await recordFaceApi('landmark68', 'face_landmark_68_model', new faceapi.FaceLandmark68Net(), 112, 'points');
await recordFaceApi('expression', 'face_expression_model', new faceapi.FaceExpressionNet(), 112, 'classes');
await recordFaceApi('recognition', 'face_recognition_model', new faceapi.FaceRecognitionNet(), 150, 'feature');

globalThis.TextEncoder = textEncoder;
await human.setBackend('cpu');
const even = (tf, pixels) => tf.sub(tf.div(pixels, 127.5), 1);
await recordHuman('blazeface', 256, 3, even, {
  'conv2d_33/BiasAdd': 'score16', 'conv2d_35/BiasAdd': 'box16', 'conv2d_34/BiasAdd': 'score32', 'conv2d_36/BiasAdd': 'box32',
});
await recordHuman('emotion', 64, 1, (tf, pixels) => tf.mul(tf.sub(tf.div(pixels, 255), 0.5), 2), { 'predictions/Softmax': 'classes' });
await recordHuman('movenet-lightning', 192, 3, (tf, pixels) => tf.cast(pixels, 'int32'), {
  'center_0/conv2d_4/BiasAdd': 'centre', 'kpt_heatmap_0/conv2d_5/BiasAdd': 'heat',
  'kpt_regress_0/conv2d_6/BiasAdd': 'regression', 'kpt_offset_0/conv2d_7/BiasAdd': 'offset',
});

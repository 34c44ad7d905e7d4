#!/usr/bin/env python3
"""Converts the learned nets of the npm packages to ONNX, the form that OpenCV reads.

    convert.py PACKAGES OUTPUT

PACKAGES is the folder node_modules, OUTPUT the model folder. Every file is held against sources.sha256 before it
is read. The nets stay fully convolutional and free of batch sizes: NCHW, one output blob for each head, and what
follows the last convolution (anchors, sigmoids, choosing the best place) is the caller's.
"""
import base64
import hashlib
import json
import sys
from pathlib import Path

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

HERE = Path(__file__).resolve().parent


class Sources:
    """The packages' files, each checked once against its hash."""

    def __init__(self, packages):
        self.packages = Path(packages)
        self.hashes = {}
        for line in (HERE / "sources.sha256").read_text().splitlines():
            value, name = line.split()
            self.hashes[name] = value

    def read(self, name):
        try:
            data = (self.packages / name).read_bytes()
        except OSError as error:
            sys.exit(f"{name} is missing ({error.strerror}): run npm ci --ignore-scripts, which needs the network once")
        if hashlib.sha256(data).hexdigest() != self.hashes[name]:
            sys.exit(f"{name} is not the file that sources.sha256 names: remove node_modules and run npm ci again")
        return data

    def weights(self, manifest, folder):
        """The arrays of a weight manifest by name. Quantised ones are widened: value * scale + minimum."""
        arrays = {}
        for group in manifest:
            data = b"".join(self.read(f"{folder}/{path}") for path in group["paths"])
            offset = 0
            for entry in group["weights"]:
                quantised = entry.get("quantization")
                kind = numpy.dtype(quantised["dtype"] if quantised else entry["dtype"]).newbyteorder("<")
                count = int(numpy.prod(entry["shape"], dtype=int))
                array = numpy.frombuffer(data, kind, count, offset).astype(entry["dtype"])
                if quantised and "scale" in quantised:
                    array = array * numpy.float32(quantised["scale"]) + numpy.float32(quantised["min"])
                arrays[entry["name"]] = array.astype(entry["dtype"]).reshape(entry["shape"])
                offset += count * kind.itemsize
            if offset != len(data):
                sys.exit(f"{folder}: {len(data)} bytes of weights, {offset} described")
        return arrays


def same_pads(size, kernel, stride):
    """Zeros before and after a side, so that the result has size / stride of it: the odd one comes after."""
    total = max((-(-size // stride) - 1) * stride + kernel - size, 0)
    return total // 2, total - total // 2


class Graph:
    """An ONNX graph in the making. A value is its name; sizes counts the pixels of its sides."""

    def __init__(self, name, channels, size):
        self.name = name
        self.nodes = []
        self.constants = []
        self.outputs = []
        self.sizes = {"input": size}
        shape = ["batch", channels, size, size]
        self.input = helper.make_tensor_value_info("input", TensorProto.FLOAT, shape)

    def constant(self, array):
        name = f"constant{len(self.constants)}"
        self.constants.append(numpy_helper.from_array(numpy.ascontiguousarray(array), name))
        return name

    def add(self, operation, inputs, size, **attributes):
        name = f"{operation}{len(self.nodes)}"
        self.nodes.append(helper.make_node(operation, inputs, [name], name=name, **attributes))
        self.sizes[name] = size
        return name

    def window(self, size, kernel, stride, padding):
        """The attributes and the resulting size of a window that moves over a picture."""
        before, after = same_pads(size, kernel, stride) if padding == "SAME" else (0, 0)
        attributes = {
            "kernel_shape": [kernel, kernel],
            "strides": [stride, stride],
            "pads": [before, before, after, after],
        }
        return attributes, (size + before + after - kernel) // stride + 1

    def convolution(self, value, filters, bias=None, stride=1, padding="SAME", depthwise=False):
        """filters are (height, width, in, out), those of a depthwise one (height, width, channels, 1)."""
        weights = filters.transpose((2, 3, 0, 1) if depthwise else (3, 2, 0, 1))
        attributes, size = self.window(self.sizes[value], filters.shape[0], stride, padding)
        inputs = [value, self.constant(weights)] + ([] if bias is None else [self.constant(bias)])
        return self.add("Conv", inputs, size, group=filters.shape[2] if depthwise else 1, **attributes)

    def pool(self, operation, value, kernel, stride, padding="VALID"):
        attributes, size = self.window(self.sizes[value], kernel, stride, padding)
        return self.add(operation, [value], size, **attributes)

    def plain(self, operation, *values):
        return self.add(operation, list(values), self.sizes[values[0]])

    def relu6(self, value):
        # OpenCV 4.6 takes the bounds as attributes only, as they were before opset 11.
        return self.add("Clip", [value], self.sizes[value], min=0.0, max=6.0)

    def pad(self, value, pads):
        """pads: zeros before each of the four axes, then zeros after each."""
        inputs = [value, self.constant(numpy.array(pads, numpy.int64))]
        return self.add("Pad", inputs, self.sizes[value] + pads[2] + pads[6], mode="constant")

    def doubled(self, value):
        scales = self.constant(numpy.array([1, 1, 2, 2], numpy.float32))
        roi = self.constant(numpy.array([], numpy.float32))
        return self.add("Resize", [value, roi, scales], 2 * self.sizes[value], mode="linear",
                        coordinate_transformation_mode="half_pixel")

    def mean(self, value):
        return self.add("GlobalAveragePool", [value], 1)

    def output(self, value, name):
        self.nodes.append(helper.make_node("Identity", [value], [name], name=name))
        shape = ["batch", f"{name} channels", f"{name} rows", f"{name} columns"]
        self.outputs.append(helper.make_tensor_value_info(name, TensorProto.FLOAT, shape))

    def save(self, folder):
        graph = helper.make_graph(self.nodes, self.name, [self.input], self.outputs, self.constants)
        model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)], ir_version=6)
        path = Path(folder) / f"{self.name}.onnx"
        unfinished = path.with_suffix(".part")
        onnx.save(model, str(unfinished))
        unfinished.replace(path)


# The nets of face-api carry no graph, only named weights.

FACE_API = "@vladmandic/face-api/model"


def face_api_weights(sources, net):
    manifest = json.loads(sources.read(f"{FACE_API}/{net}-weights_manifest.json"))
    return sources.weights(manifest, FACE_API)


def recognition(sources):
    """128 numbers of a face: residual blocks whose scale layers are folded into the convolutions."""
    weights = face_api_weights(sources, "face_recognition_model")
    graph = Graph("recognition", 3, 150)

    def scaled(value, name, **options):
        factor = weights[f"{name}/scale/weights"]
        bias = weights[f"{name}/conv/bias"] * factor + weights[f"{name}/scale/biases"]
        return graph.convolution(value, weights[f"{name}/conv/filters"] * factor, bias, **options)

    def block(value, name):
        inner = graph.plain("Relu", scaled(value, f"{name}/conv1"))
        return graph.plain("Relu", graph.plain("Add", scaled(inner, f"{name}/conv2"), value))

    def down(value, name):
        inner = graph.plain("Relu", scaled(value, f"{name}/conv1", stride=2, padding="VALID"))
        inner = scaled(inner, f"{name}/conv2")
        pooled = graph.pool("AveragePool", value, 2, 2)
        channels_in, channels_out = weights[f"{name}/conv1/conv/filters"].shape[2:]
        short = graph.sizes[pooled] - graph.sizes[inner]
        if short:
            inner = graph.pad(inner, [0, 0, 0, 0, 0, 0, short, short])
        if channels_out != channels_in:
            pooled = graph.pad(pooled, [0, 0, 0, 0, 0, channels_out - channels_in, 0, 0])
        return graph.plain("Relu", graph.plain("Add", pooled, inner))

    value = graph.plain("Relu", scaled("input", "conv32_down", stride=2, padding="VALID"))
    value = graph.pool("MaxPool", value, 3, 2)
    for name in ["conv32_1", "conv32_2", "conv32_3", "conv64_down", "conv64_1", "conv64_2", "conv64_3",
                 "conv128_down", "conv128_1", "conv128_2", "conv256_down", "conv256_1", "conv256_2",
                 "conv256_down_out"]:
        value = (down if "down" in name else block)(value, name)
    graph.output(graph.convolution(graph.mean(value), weights["fc"][None, None]), "feature")
    return graph


def face_classifier(sources, net, name, output, softmax=False):
    """The dense blocks that landmarks and expressions have in common, and one fully connected layer."""
    weights = face_api_weights(sources, net)
    graph = Graph(name, 3, 112)

    def layer(value, name, stride=1):
        if f"{name}/filters" in weights:
            return graph.convolution(value, weights[f"{name}/filters"], weights[f"{name}/bias"], stride)
        value = graph.convolution(value, weights[f"{name}/depthwise_filter"], None, stride, depthwise=True)
        return graph.convolution(value, weights[f"{name}/pointwise_filter"], weights[f"{name}/bias"])

    value = "input"
    for block in range(4):
        total = value = graph.plain("Relu", layer(value, f"dense{block}/conv0", stride=2))
        for number in range(1, 4):
            total = graph.plain("Add", total, layer(value, f"dense{block}/conv{number}"))
            value = graph.plain("Relu", total)
    value = graph.pool("AveragePool", value, 7, 2)
    value = graph.convolution(value, weights["fc/weights"][None, None], weights["fc/bias"])
    graph.output(graph.add("Softmax", [value], 1, axis=1) if softmax else value, output)
    return graph


# The nets of human are graphs, which are followed node by node.

HUMAN = "@vladmandic/human/models"


def followed(sources, net, name, channels, size, start, outputs):
    """The part of a graph from the node start (whose result is the input) to the nodes of outputs, which maps
    the ends of their names to the names of our outputs."""
    model = json.loads(sources.read(f"{HUMAN}/{net}.json"))
    weights = sources.weights(model["weightsManifest"], HUMAN)
    nodes = {node["name"]: node for node in model["modelTopology"]["node"]}
    graph = Graph(name, channels, size)
    done = {start: "input"}

    def text(value):
        return base64.b64decode(value).decode()

    def activated(value, node):
        fused = [text(entry) for entry in node["attr"]["fused_ops"]["list"]["s"]] if "fused_ops" in node["attr"] else []
        for operation in fused:
            if operation == "Relu":
                value = graph.plain("Relu", value)
            elif operation == "Relu6":
                value = graph.relu6(value)
            elif operation != "BiasAdd":
                sys.exit(f"{net}: {node['name']} has the unknown activation {operation}")
        return value

    def convert(node):
        operation, attributes = node["op"], node.get("attr", {})
        inputs = [entry.split(":")[0] for entry in node.get("input", [])]
        values = [follow(entry) for entry in inputs if entry not in weights]
        constants = [weights[entry] for entry in inputs if entry in weights]
        stride = int(attributes["strides"]["list"]["i"][1]) if "strides" in attributes else 1
        padding = text(attributes["padding"]["s"]) if "padding" in attributes else "VALID"
        if operation in ("_FusedConv2D", "DepthwiseConv2dNative", "FusedDepthwiseConv2dNative"):
            bias = constants[1] if len(constants) > 1 else None
            value = graph.convolution(values[0], constants[0], bias, stride, padding, "Depthwise" in operation)
            return activated(value, node)
        if operation == "MaxPool":
            return graph.pool("MaxPool", values[0], int(attributes["ksize"]["list"]["i"][1]), stride, padding)
        if operation == "AddV2":
            return graph.plain("Add", *values)
        if operation == "Relu":
            return graph.plain("Relu", *values)
        if operation == "Pad":
            before, after = constants[0][[0, 3, 1, 2]].T.tolist()
            return graph.pad(values[0], before + after)
        if operation == "Mean":
            return graph.mean(values[0])
        if operation == "Softmax":
            return graph.add("Softmax", values, 1, axis=1)
        if operation == "ResizeBilinear" and constants[0].tolist() == 2 * [2 * graph.sizes[values[0]]]:
            return graph.doubled(values[0])
        sys.exit(f"{net}: {node['name']} is the unknown operation {operation}")

    def follow(entry):
        if entry not in done:
            done[entry] = convert(nodes[entry])
        return done[entry]

    for end, output in outputs.items():
        found = [entry for entry in nodes if entry.endswith(end)]
        if len(found) != 1:
            sys.exit(f"{net}: {len(found)} nodes have names that end in {end}")
        graph.output(follow(found[0]), output)
    return graph


def all_nets(sources):
    yield followed(sources, "blazeface", "blazeface", 3, 256, "input", {
        "conv2d_33/BiasAdd": "score16", "conv2d_35/BiasAdd": "box16",
        "conv2d_34/BiasAdd": "score32", "conv2d_36/BiasAdd": "box32"})
    yield face_classifier(sources, "face_landmark_68_model", "landmark68", "points")
    yield recognition(sources)
    yield face_classifier(sources, "face_expression_model", "expression", "classes", softmax=True)
    yield followed(sources, "emotion", "emotion", 1, 64, "input_1", {"predictions/Softmax": "classes"})
    yield followed(sources, "movenet-lightning", "movenet", 3, 192, "StatefulPartitionedCall/sub_1", {
        "center_0/conv2d_4/BiasAdd": "centre", "kpt_heatmap_0/conv2d_5/BiasAdd": "heat",
        "kpt_regress_0/conv2d_6/BiasAdd": "regression", "kpt_offset_0/conv2d_7/BiasAdd": "offset"})


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sources = Sources(sys.argv[1])
    for graph in all_nets(sources):
        graph.save(sys.argv[2])


if __name__ == "__main__":
    main()

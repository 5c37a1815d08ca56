#!/usr/bin/python3
"""Converts a TFLite image model to ONNX, for OpenCV's DNN module.

A small converter for the operators that convolutional segmentation models
use: CONV_2D, DEPTHWISE_CONV_2D, the custom Convolution2DTransposeBias,
ADD, MUL, RELU, HARD_SWISH, LOGISTIC, MEAN (as a global average),
RESIZE_BILINEAR and DEQUANTIZE of float16 weights. Activations stay 4-D:
TFLite's NHWC layout becomes ONNX's NCHW, with the input and output
transposed back so that the ONNX model takes and gives NHWC like the original.

Usage: tflite2onnx.py model.tflite model.onnx

The flatbuffer is read through its vtable slots (numbered as in TFLite's
schema.fbs), so no generated schema code is needed.
"""

import struct
import sys

import flatbuffers
import numpy as np
import onnx
from flatbuffers import number_types as N
from flatbuffers.table import Table
from onnx import TensorProto, helper, numpy_helper

# Builtin operator codes of TFLite's schema.
ADD, CONV_2D, DEPTHWISE_CONV_2D, DEQUANTIZE = 0, 3, 4, 6
LOGISTIC, MUL, RELU, RESIZE_BILINEAR, CUSTOM = 14, 18, 19, 23, 32
MEAN, HARD_SWISH = 40, 117
# Tensor types.
FLOAT32, FLOAT16, INT32 = 0, 1, 2
NUMPY_TYPES = {FLOAT32: np.float32, FLOAT16: np.float16, INT32: np.int32}
# Fused activations.
ACT_NONE, ACT_RELU, ACT_RELU6 = 0, 1, 3


class ConversionError(Exception):
    pass


class Reader:
    """Field access on a flatbuffer table by schema slot number."""

    def __init__(self, table):
        self.t = table

    def _off(self, slot):
        return self.t.Offset(4 + 2 * slot)

    def scalar(self, slot, flags, default=0):
        o = self._off(slot)
        return self.t.Get(flags, o + self.t.Pos) if o else default

    def table(self, slot):
        o = self._off(slot)
        return Reader(Table(self.t.Bytes, self.t.Indirect(o + self.t.Pos))) if o else None

    def tables(self, slot):
        o = self._off(slot)
        if not o:
            return []
        n, start = self.t.VectorLen(o), self.t.Vector(o)
        return [Reader(Table(self.t.Bytes, self.t.Indirect(start + 4 * i))) for i in range(n)]

    def ints(self, slot):
        o = self._off(slot)
        if not o:
            return []
        n, start = self.t.VectorLen(o), self.t.Vector(o)
        return [self.t.Get(N.Int32Flags, start + 4 * i) for i in range(n)]

    def bytes(self, slot):
        o = self._off(slot)
        if not o:
            return b""
        n, start = self.t.VectorLen(o), self.t.Vector(o)
        return bytes(self.t.Bytes[start:start + n])

    def string(self, slot):
        o = self._off(slot)
        return self.t.String(o + self.t.Pos).decode() if o else None


def same_pads(in_size, kernel, stride, dilation=1):
    """TensorFlow's SAME padding as explicit (before, after)."""
    out = -(-in_size // stride)
    effective = (kernel - 1) * dilation + 1
    total = max((out - 1) * stride + effective - in_size, 0)
    return total // 2, total - total // 2


class Converter:
    def __init__(self, data):
        model = Reader(Table(data, flatbuffers.encode.Get(N.UOffsetTFlags.packer_type, data, 0)))
        self.codes = []
        for oc in model.tables(1):
            code = max(oc.scalar(3, N.Int32Flags), oc.scalar(0, N.Int8Flags))
            self.codes.append((code, oc.string(1)))
        self.buffers = [b.bytes(0) for b in model.tables(4)]
        graphs = model.tables(2)
        if len(graphs) != 1:
            raise ConversionError("expected one subgraph, found %d" % len(graphs))
        self.graph = graphs[0]
        self.tensors = self.graph.tables(0)
        self.nodes = []
        self.initializers = []
        self.constants = {}  # tensor index -> numpy array (TFLite layout)
        self.names = {}  # tensor index -> ONNX value name
        self.counter = 0

    # Tensors ---------------------------------------------------------------
    def shape(self, i):
        return self.tensors[i].ints(0)

    def tname(self, i):
        return self.names.get(i) or self.tensors[i].string(3) or "t%d" % i

    def constant(self, i):
        if i in self.constants:
            return self.constants[i]
        t = self.tensors[i]
        kind = t.scalar(1, N.Int8Flags)
        if kind not in NUMPY_TYPES:
            raise ConversionError("tensor %s has unsupported type %d" % (t.string(3), kind))
        raw = self.buffers[t.scalar(2, N.Uint32Flags)] if t.scalar(2, N.Uint32Flags) < len(self.buffers) else b""
        if not raw:
            raise ConversionError("tensor %s has no data" % t.string(3))
        array = np.frombuffer(raw, dtype=NUMPY_TYPES[kind]).reshape(self.shape(i))
        self.constants[i] = array
        return array

    def unique(self, base):
        self.counter += 1
        return "%s__%d" % (base, self.counter)

    def add_init(self, base, array):
        name = self.unique(base)
        self.initializers.append(numpy_helper.from_array(np.ascontiguousarray(array), name))
        return name

    def node(self, op, inputs, outputs, **attrs):
        self.nodes.append(helper.make_node(op, inputs, outputs, name=self.unique(op), **attrs))

    def activation(self, kind, src, dst):
        if kind == ACT_NONE:
            self.node("Identity", [src], [dst])
        elif kind == ACT_RELU:
            self.node("Relu", [src], [dst])
        elif kind == ACT_RELU6:
            self.node("Clip", [src, self.add_init("zero", np.array(0.0, np.float32)),
                              self.add_init("six", np.array(6.0, np.float32))], [dst])
        else:
            raise ConversionError("fused activation %d is not supported" % kind)

    def output_with_activation(self, out_index, kind):
        """Name for a node's raw result; emits the fused activation after it."""
        dst = self.tname(out_index)
        if kind == ACT_NONE:
            return dst
        raw = self.unique(dst + "_pre")
        self._pending = (kind, raw, dst)
        return raw

    def flush_activation(self):
        pending = getattr(self, "_pending", None)
        if pending:
            self.activation(*pending)
            self._pending = None

    # Operators -------------------------------------------------------------
    def conv(self, op, ins, out, depthwise):
        opts = op.table(4)
        padding = opts.scalar(0, N.Int8Flags)
        stride_w, stride_h = opts.scalar(1, N.Int32Flags, 1), opts.scalar(2, N.Int32Flags, 1)
        if depthwise:
            act = opts.scalar(4, N.Int8Flags)
            dil_w, dil_h = opts.scalar(5, N.Int32Flags, 1), opts.scalar(6, N.Int32Flags, 1)
        else:
            act = opts.scalar(3, N.Int8Flags)
            dil_w, dil_h = opts.scalar(4, N.Int32Flags, 1), opts.scalar(5, N.Int32Flags, 1)
        weights = self.constant(ins[1]).astype(np.float32)
        _, in_h, in_w, in_c = self.shape(ins[0])
        if depthwise:
            # [1, H, W, C*M] -> [C*M, 1, H, W], one group per input channel.
            kh, kw = weights.shape[1], weights.shape[2]
            w = weights.transpose(3, 0, 1, 2)
            group = in_c
        else:
            # [O, H, W, I] -> [O, I, H, W]
            kh, kw = weights.shape[1], weights.shape[2]
            w = weights.transpose(0, 3, 1, 2)
            group = 1
        if padding == 0:  # SAME
            top, bottom = same_pads(in_h, kh, stride_h, dil_h)
            left, right = same_pads(in_w, kw, stride_w, dil_w)
        else:
            top = bottom = left = right = 0
        inputs = [self.tname(ins[0]), self.add_init(self.tname(ins[1]), w)]
        if len(ins) > 2 and ins[2] >= 0:
            inputs.append(self.add_init(self.tname(ins[2]), self.constant(ins[2]).astype(np.float32)))
        dst = self.output_with_activation(out[0], act)
        self.node("Conv", inputs, [dst], kernel_shape=[kh, kw], strides=[stride_h, stride_w],
                  dilations=[dil_h, dil_w], pads=[top, left, bottom, right], group=group)
        self.flush_activation()

    def transpose_conv_bias(self, op, ins, out):
        # Custom options: TfLiteTransposeConvParams {padding, stride_width, stride_height}
        # as native int32s; padding 1 = SAME, 2 = VALID.
        raw = op.bytes(5)
        if len(raw) < 12:
            raise ConversionError("Convolution2DTransposeBias options are %d bytes" % len(raw))
        padding, stride_w, stride_h = struct.unpack("<3i", raw[:12])
        weights = self.constant(ins[1]).astype(np.float32)  # [O, H, W, I]
        _, kh, kw, _ = weights.shape
        _, in_h, in_w, _ = self.shape(ins[0])
        _, out_h, out_w, _ = self.shape(out[0])
        pads = []
        for size_in, size_out, k, s in ((in_h, out_h, kh, stride_h), (in_w, out_w, kw, stride_w)):
            total = (size_in - 1) * s + k - size_out
            if padding == 2:
                total = 0
            if total < 0:
                raise ConversionError("transpose convolution output is larger than its input allows")
            pads.append((total // 2, total - total // 2))
        inputs = [self.tname(ins[0]), self.add_init(self.tname(ins[1]), weights.transpose(3, 0, 1, 2)),
                  self.add_init(self.tname(ins[2]), self.constant(ins[2]).astype(np.float32))]
        self.node("ConvTranspose", inputs, [self.tname(out[0])], kernel_shape=[kh, kw],
                  strides=[stride_h, stride_w], pads=[pads[0][0], pads[1][0], pads[0][1], pads[1][1]])

    def binary(self, op, ins, out, onnx_op):
        act = op.table(4).scalar(0, N.Int8Flags) if op.table(4) else ACT_NONE
        inputs = []
        for i in ins:
            if self.is_constant(i):
                c = self.constant(i).astype(np.float32)
                if c.ndim == 4:
                    c = c.transpose(0, 3, 1, 2)
                inputs.append(self.add_init(self.tname(i), c))
            else:
                inputs.append(self.tname(i))
        dst = self.output_with_activation(out[0], act)
        self.node(onnx_op, inputs, [dst])
        self.flush_activation()

    def mean(self, op, ins, out):
        axes = sorted(int(a) % 4 for a in self.constant(ins[1]).flatten())
        keep = op.table(4).scalar(0, N.BoolFlags) if op.table(4) else False
        if axes != [1, 2] or not keep:
            raise ConversionError("MEAN is supported only over height and width with keep_dims")
        self.node("GlobalAveragePool", [self.tname(ins[0])], [self.tname(out[0])])

    def resize(self, op, ins, out):
        opts = op.table(4)
        align = opts.scalar(2, N.BoolFlags) if opts else False
        half = opts.scalar(3, N.BoolFlags) if opts else False
        mode = "align_corners" if align else "half_pixel" if half else "asymmetric"
        n, h, w, c = self.shape(out[0])
        roi = self.add_init("roi", np.zeros((0,), np.float32))
        scales = self.add_init("scales", np.zeros((0,), np.float32))
        sizes = self.add_init("sizes", np.array([n, c, h, w], np.int64))
        self.node("Resize", [self.tname(ins[0]), roi, scales, sizes], [self.tname(out[0])],
                  mode="linear", coordinate_transformation_mode=mode)

    def hard_swish(self, ins, out):
        self.node("HardSwish", [self.tname(ins[0])], [self.tname(out[0])])

    def is_constant(self, i):
        t = self.tensors[i]
        b = t.scalar(2, N.Uint32Flags)
        return i in self.constants or (b < len(self.buffers) and len(self.buffers[b]) > 0)

    # Graph -----------------------------------------------------------------
    def convert(self):
        inputs, outputs = self.graph.ints(1), self.graph.ints(2)
        if len(inputs) != 1 or len(outputs) != 1:
            raise ConversionError("expected one input and one output")
        for i in inputs + outputs:
            if len(self.shape(i)) != 4:
                raise ConversionError("input and output must be 4-D images")
        in_name, out_name = self.tensors[inputs[0]].string(3), self.tensors[outputs[0]].string(3)
        # The graph works in NCHW between a transpose at each end.
        self.names[inputs[0]] = in_name + "_nchw"
        self.names[outputs[0]] = out_name + "_nchw"
        self.node("Transpose", [in_name], [self.names[inputs[0]]], perm=[0, 3, 1, 2])
        for op in self.graph.tables(3):
            code, custom = self.codes[op.scalar(0, N.Uint32Flags)]
            ins, out = op.ints(1), op.ints(2)
            if code == DEQUANTIZE:
                self.constants[out[0]] = self.constant(ins[0]).astype(np.float32)
            elif code == CONV_2D:
                self.conv(op, ins, out, depthwise=False)
            elif code == DEPTHWISE_CONV_2D:
                self.conv(op, ins, out, depthwise=True)
            elif code == CUSTOM and custom == "Convolution2DTransposeBias":
                self.transpose_conv_bias(op, ins, out)
            elif code == ADD:
                self.binary(op, ins, out, "Add")
            elif code == MUL:
                self.binary(op, ins, out, "Mul")
            elif code == RELU:
                self.node("Relu", [self.tname(ins[0])], [self.tname(out[0])])
            elif code == LOGISTIC:
                self.node("Sigmoid", [self.tname(ins[0])], [self.tname(out[0])])
            elif code == HARD_SWISH:
                self.hard_swish(ins, out)
            elif code == MEAN:
                self.mean(op, ins, out)
            elif code == RESIZE_BILINEAR:
                self.resize(op, ins, out)
            else:
                raise ConversionError("operator %s is not supported" % (custom or code))
        self.node("Transpose", [self.names[outputs[0]]], [out_name], perm=[0, 2, 3, 1])
        graph = helper.make_graph(
            self.nodes, "converted",
            [helper.make_tensor_value_info(in_name, TensorProto.FLOAT, self.shape(inputs[0]))],
            [helper.make_tensor_value_info(out_name, TensorProto.FLOAT, self.shape(outputs[0]))],
            self.initializers)
        model = helper.make_model(graph, producer_name="tflite2onnx",
                                  opset_imports=[helper.make_opsetid("", 14)])
        model.ir_version = 7
        onnx.checker.check_model(model)
        return model


def main(argv):
    if len(argv) != 3:
        print("usage: tflite2onnx.py model.tflite model.onnx", file=sys.stderr)
        return 2
    try:
        with open(argv[1], "rb") as f:
            data = bytearray(f.read())
        if len(data) < 8 or data[4:8] != b"TFL3":
            raise ConversionError("not a TFLite model")
        model = Converter(data).convert()
    except (ConversionError, OSError, ValueError, IndexError, struct.error) as e:
        print("tflite2onnx: %s: %s" % (argv[1], e), file=sys.stderr)
        return 1
    onnx.save(model, argv[2])
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))

#!/usr/bin/python3
"""Writes the reference runtime tests' networks. permute.onnx: two inputs, each mapped to an output with
its elements reversed, so that every byte's way through the layouts can be checked exactly.

  packed  1x6xHxW -> packed_out  (channels reversed, 1x1 convolution)
  vec     1x16    -> vec_out     (elements reversed, matrix product)
"""
import os

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

conv = np.eye(6, dtype=np.float32)[::-1].reshape(6, 6, 1, 1).copy()
mat = np.eye(16, dtype=np.float32)[::-1].copy()
graph = helper.make_graph(
    [helper.make_node("Conv", ["packed", "conv_w"], ["packed_out"], kernel_shape=[1, 1]),
     helper.make_node("MatMul", ["vec", "mat"], ["vec_out"])],
    "permute",
    [helper.make_tensor_value_info("packed", TensorProto.FLOAT, [1, 6, "h", "w"]),
     helper.make_tensor_value_info("vec", TensorProto.FLOAT, [1, 16])],
    [helper.make_tensor_value_info("packed_out", TensorProto.FLOAT, [1, 6, "h", "w"]),
     helper.make_tensor_value_info("vec_out", TensorProto.FLOAT, [1, 16])],
    [numpy_helper.from_array(conv, "conv_w"), numpy_helper.from_array(mat, "mat")])
model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)], producer_name="vai-tests")
onnx.checker.check_model(model)
onnx.save(model, os.path.join(os.path.dirname(os.path.abspath(__file__)), "permute.onnx"))

# identity.onnx: "frame" 1xCxHxW passed through unchanged as "out", whatever the layout feeding it.
graph = helper.make_graph(
    [helper.make_node("Identity", ["frame"], ["out"])], "identity",
    [helper.make_tensor_value_info("frame", TensorProto.FLOAT, [1, "c", "h", "w"])],
    [helper.make_tensor_value_info("out", TensorProto.FLOAT, [1, "c", "h", "w"])])
model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)], producer_name="vai-tests")
onnx.checker.check_model(model)
onnx.save(model, os.path.join(os.path.dirname(os.path.abspath(__file__)), "identity.onnx"))

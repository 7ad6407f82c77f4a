# SPDX-License-Identifier: MIT
"""Changes to finished graphs: renaming, taking a graph into another one, leaving out what nothing needs."""

from collections.abc import Callable, Iterable, Mapping

from onnx import AttributeProto, GraphProto, ModelProto, NodeProto, TensorProto, version_converter

from .errors import ConversionError
from .graph import OPSET, Graph


def subgraphs(node: NodeProto) -> list[GraphProto]:
    """The graphs inside a node: branches of an If, the body of a Loop."""
    return [attribute.g for attribute in node.attribute if attribute.type == AttributeProto.GRAPH] + [
        graph for attribute in node.attribute for graph in attribute.graphs]


def at_our_opset(model: ModelProto, what: str) -> ModelProto:
    """The model in the operator set that converted models have.
    Raises ConversionError if it uses others, or functions of its own."""
    foreign = sorted(entry.domain for entry in model.opset_import if entry.domain not in ("", "ai.onnx"))
    if foreign or model.functions:
        raise ConversionError(f"{what} uses operators beyond ONNX's own" + (f" ({foreign[0]})." if foreign else "."))
    versions = [entry.version for entry in model.opset_import]
    if versions == [OPSET]:
        return model
    try:
        return version_converter.convert_version(model, OPSET)
    except (RuntimeError, ValueError) as failure:
        raise ConversionError(f"{what} has operator set {versions[0]}, and there is no way from it to {OPSET}.") \
            from failure


def take_in(target: Graph, source: GraphProto, prefix: str, inputs: Mapping[str, str]) -> Callable[[str], str]:
    """Copies a graph into another one. Its inputs become the given values; all else gets the prefix.
    Returns the map from names in the source to names in the target."""

    def renamed(name: str) -> str:
        return inputs.get(name, prefix + name) if name else ""

    for tensor in source.initializer:
        if tensor.name not in inputs:
            target.constants.append(_renamed_tensor(tensor, renamed))
    for node in source.node:
        target.nodes.append(_renamed_node(node, renamed))
    return renamed


def _renamed_tensor(tensor: TensorProto, renamed: Callable[[str], str]) -> TensorProto:
    copy = TensorProto()
    copy.CopyFrom(tensor)
    copy.name = renamed(tensor.name)
    return copy


def _renamed_node(node: NodeProto, renamed: Callable[[str], str]) -> NodeProto:
    copy = NodeProto()
    copy.CopyFrom(node)
    _rename_in_place(copy, renamed)
    return copy


def _rename_in_place(node: NodeProto, renamed: Callable[[str], str]) -> None:
    """Renames all values of a node, those inside it too: an inner name may be one of the outer graph."""
    node.name = renamed(node.name)
    node.input[:] = [renamed(name) for name in node.input]
    node.output[:] = [renamed(name) for name in node.output]
    for inner in subgraphs(node):
        for value in (*inner.input, *inner.output, *inner.value_info, *inner.initializer):
            value.name = renamed(value.name)
        for child in inner.node:
            _rename_in_place(child, renamed)


def needed_names(node: NodeProto) -> Iterable[str]:
    """All values that a node reads, those that are read inside it too."""
    yield from node.input
    for inner in subgraphs(node):
        yield from (value.name for value in inner.output)
        for child in inner.node:
            yield from needed_names(child)


def prune(graph: Graph) -> None:
    """Leaves out the nodes and constants that no output needs."""
    needed = {value.name for value in graph.outputs}
    kept = []
    for node in reversed(graph.nodes):  # a graph's nodes stand in the order in which they can run
        if needed.intersection(node.output):
            kept.append(node)
            needed.update(needed_names(node))
    graph.nodes[:] = reversed(kept)
    graph.constants[:] = [tensor for tensor in graph.constants if tensor.name in needed]

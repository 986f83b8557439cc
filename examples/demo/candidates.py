"""Candidates: trees of functions over features, how they are composed and computed."""

from collections import OrderedDict
from dataclasses import dataclass
from typing import Any

import numpy as np

from demo.features import FEATURES, Feature
from demo.functions import FUNCTIONS, Function
from demo.prices import Matrix, Prices

MAX_DEPTH = 4

_UNARY = tuple(function for function in FUNCTIONS if function.arity == 1)


@dataclass(frozen=True)
class Leaf:
    """A feature, as it is."""

    feature: Feature
    depth = 0

    def __str__(self) -> str:
        return self.feature.name


@dataclass(frozen=True)
class Call:
    """A function of other trees."""

    function: Function
    arguments: tuple["Tree", ...]

    @property
    def depth(self) -> int:
        """The number of functions on the longest way down to a feature."""
        return 1 + max(argument.depth for argument in self.arguments)

    def __str__(self) -> str:
        return f"{self.function.name}({', '.join(map(str, self.arguments))})"


Tree = Leaf | Call


def compose(rng: np.random.Generator, depth: int) -> Tree:
    """Return a random tree of exactly this depth."""
    if depth == 0:
        return Leaf(_pick(rng, FEATURES))
    # Two arguments only now and then: most of a tree is a chain.
    function = _pick(rng, FUNCTIONS if rng.random() < 0.5 else _UNARY)
    arguments = [compose(rng, depth - 1)]
    while len(arguments) < function.arity:
        arguments.append(compose(rng, int(rng.integers(0, depth))))
    return Call(function, tuple(arguments))


def vary(rng: np.random.Generator, tree: Tree) -> Tree:
    """Return a tree that differs from `tree` in one place, no deeper than MAX_DEPTH."""
    if isinstance(tree, Leaf):
        return Leaf(_pick(rng, FEATURES))
    choice = rng.random()
    if choice < 0.25 and tree.depth < MAX_DEPTH:
        return Call(_pick(rng, _UNARY), (tree,))
    if choice < 0.5:
        like = [function for function in FUNCTIONS if function.arity == tree.function.arity]
        return Call(_pick(rng, like), tree.arguments)
    place = int(rng.integers(len(tree.arguments)))
    arguments = list(tree.arguments)
    arguments[place] = vary_below(rng, arguments[place], MAX_DEPTH - 1)
    return Call(tree.function, tuple(arguments))


def vary_below(rng: np.random.Generator, tree: Tree, depth: int) -> Tree:
    """Like vary, but the result is no deeper than `depth`."""
    varied = vary(rng, tree)
    return varied if varied.depth <= depth else tree


def metadata(tree: Tree) -> tuple[list[dict[str, str]], list[dict[str, str]]]:
    """Return the catalogue entries of the functions and of the features, as met in the tree.

    Each function and feature comes once, however often the tree uses it.
    """
    functions: dict[str, dict[str, str]] = {}
    features: dict[str, dict[str, str]] = {}
    waiting = [tree]
    while waiting:
        node = waiting.pop()
        if isinstance(node, Leaf):
            features.setdefault(node.feature.name, node.feature.metadata)
        else:
            functions.setdefault(node.function.name, node.function.metadata)
            waiting += reversed(node.arguments)
    return list(functions.values()), list(features.values())


class Computer:
    """Computes trees over the prices of one universe, and remembers what it computed last."""

    REMEMBERED = 400

    def __init__(self, prices: Prices) -> None:
        self._prices = prices
        self._known: OrderedDict[str, Matrix] = OrderedDict()

    def compute(self, tree: Tree) -> Matrix:
        """Return the tree's value for every day and instrument."""
        text = str(tree)
        value = self._known.get(text)
        if value is None:
            if isinstance(tree, Leaf):
                value = tree.feature.compute(self._prices)
            else:
                value = tree.function.apply(*map(self.compute, tree.arguments))
            self._known[text] = value
            if len(self._known) > self.REMEMBERED:
                self._known.popitem(last=False)
        else:
            self._known.move_to_end(text)
        return value


def _pick(rng: np.random.Generator, choices: Any) -> Any:
    return choices[int(rng.integers(len(choices)))]

# SPDX-License-Identifier: MIT
"""Muon: momentum whose steps are orthogonal matrices (Jordan et al., 2024), for the kernels and dense layers.

All directions of a weight matrix move at the same speed, and not only the few in which gradients are large. The rest
of the parameters (biases, norms) go by AdamW.
"""

from typing import Any

import torch

COEFFICIENTS = (3.4445, -4.7750, 2.0315)  # of the quintic iteration that brings all singular values near 1
ITERATIONS = 5
MATCH = 0.2  # size of a step's entries relative to the rate, as that of AdamW's, so that one rate serves both


def orthogonalise(matrix: torch.Tensor) -> torch.Tensor:
    """The nearest matrix with singular values near 1 (0.7 to 1.2).

    Every iteration multiplies by a polynomial of the Gram matrix. That matrix is small, so the polynomials' product is
    gathered first and multiplies once, at the end, in a third of the time.
    """
    wide = matrix if matrix.shape[0] <= matrix.shape[1] else matrix.t()
    wide = wide / (wide.norm() + 1e-12)
    gram = wide @ wide.t()
    first, third, fifth = COEFFICIENTS
    product = torch.eye(len(gram), dtype=gram.dtype, device=gram.device)
    for _ in range(ITERATIONS):
        factor = torch.addmm(gram, gram, gram, beta=third, alpha=fifth)
        factor.diagonal().add_(first)
        product = factor @ product
        gram = factor @ gram @ factor
    result = product @ wide
    return result if matrix.shape[0] <= matrix.shape[1] else result.t()


class Muon(torch.optim.Optimizer):
    """Nesterov momentum, orthogonalised; kernels [outputs, inputs, h, w] count as matrices of h w inputs columns."""

    def __init__(self, parameters: list[torch.nn.Parameter], lr: float, weight_decay: float = 0.0,
                 momentum: float = 0.95) -> None:
        super().__init__(parameters, {"lr": lr, "weight_decay": weight_decay, "momentum": momentum})

    @torch.no_grad()
    def step(self, closure: None = None) -> None:
        """One step along the gradients; there is no closure that computes them anew."""
        for group in self.param_groups:
            for value in group["params"]:
                if value.grad is not None:
                    self._update(value, value.grad, group)

    def _update(self, value: torch.nn.Parameter, gradient: torch.Tensor, group: dict[str, Any]) -> None:
        state = self.state[value]
        if not state:
            state["momentum"] = torch.zeros_like(value)
        momentum = state["momentum"].lerp_(gradient, 1 - group["momentum"])
        direction = gradient.lerp(momentum, group["momentum"]).flatten(1)
        scale = MATCH * max(direction.shape) ** 0.5
        value.mul_(1 - group["lr"] * group["weight_decay"])
        value.add_(orthogonalise(direction).view_as(value), alpha=-group["lr"] * scale)

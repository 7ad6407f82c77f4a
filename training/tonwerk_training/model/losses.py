# SPDX-License-Identifier: MIT
"""What training minimises, and how well a set of masks separates; everything from the chunks' summaries.

Tensors, P the band powers relative to the crop's mean: logits [batch, 7, 2, ...], masks their softmax over the second
axis, power [batch, 2, ...], ratio [batch, 6, 2, ...] the optimal masks; the dots stand for any arrangement of frames
and bands. rest and energy [batch, 6], relative to the same mean.
"""

import math
from dataclasses import dataclass
from typing import Any

import torch

from ..data.chunkstore import dequantise

STEM_COUNT = 6
EPSILON_FIRST, EPSILON_LAST = 5e-2, 8e-3
SHARE_PHASE = 1 / 3  # the part of training that learns shares before it learns decibels
ENTROPY_EXPONENT = 0.4  # of the power, in the weight of the cross-entropy
AMPLITUDE_SCALE = 10.0  # brings that term to the size of the cross-entropy


@dataclass(frozen=True)
class LossWeights:
    """Weights of the loss's three terms, and the epsilon of the decibels' logarithm, relative to the whole energy."""

    entropy: float
    amplitude: float
    decibel: float
    epsilon: float


def weights_at(progress: float) -> LossWeights:
    """The loss at a point of training (0 to 1): weights of its three terms, and the logarithm's epsilon.

    First cross-entropy and an error weighted by sqrt(P): both see quiet stems, where a ratio of energies is flat and
    piano and acoustic guitar would stay at their average share. Then mainly decibels, with an epsilon that shrinks:
    were it small from the start, silent stems would outweigh all else.
    """
    late = max(0.0, (progress - SHARE_PHASE) / (1 - SHARE_PHASE))
    fade = min(1.0, late * 10)  # over a tenth of the later part, not at once
    epsilon = math.exp(math.log(EPSILON_FIRST) + late * (math.log(EPSILON_LAST) - math.log(EPSILON_FIRST)))
    return LossWeights(entropy=1.0 - 0.7 * fade, amplitude=1.0 - 0.5 * fade, decibel=0.1 * fade, epsilon=epsilon)


def shares(ratio: torch.Tensor) -> torch.Tensor:
    """The optimal masks [6, ...] as a distribution over seven classes [7, ...], for the cross-entropy."""
    target = torch.empty(ratio.shape[0] + 1, *ratio.shape[1:], dtype=ratio.dtype, device=ratio.device)
    torch.sub(1, ratio.sum(dim=0), out=target[-1])
    target[:-1] = ratio
    target.clamp_(0, 1)
    return target.div_(target.sum(dim=0))


def squared_errors(masks: torch.Tensor, power: torch.Tensor, ratio: torch.Tensor, rest: torch.Tensor) -> torch.Tensor:
    """Energy of each stem's error, [batch, 6]: exactly what the masked spectra would give."""
    difference = masks[:, :STEM_COUNT] - ratio
    return (difference.square_() * power.unsqueeze(1)).flatten(2).sum(dim=2) + rest


def separation_ratio(error: torch.Tensor, energy: torch.Tensor) -> torch.Tensor:
    """SDR in dB of summed error and stem energies."""
    return 10 * torch.log10(energy.clamp(min=1e-12) / error.clamp(min=1e-12))


class MaskLoss(torch.autograd.Function):
    """The training loss with its gradient by hand.

    The maps of masks are the largest tensors of a step by far, and left to automatic differentiation their loss takes
    longer than the network. Here one channel of one crop at a time goes through all operations, in the cache.
    """

    @staticmethod
    def forward(context: Any, logits: torch.Tensor, data: dict[str, torch.Tensor],
                weights: LossWeights) -> torch.Tensor:
        """Returns [4]: the loss, and for the record its terms cross-entropy, amplitude error and decibels.
        data: power, codes (of the ratio, 8 bits), rest and energy by name; weights: from weights_at()."""
        gradient = torch.empty_like(logits)
        entropy_weight = data["power"] ** ENTROPY_EXPONENT
        entropy_weight *= weights.entropy / entropy_weight.sum().clamp(min=1.0)
        root = torch.sqrt(data["power"])
        root *= weights.amplitude * AMPLITUDE_SCALE / (root.numel() * STEM_COUNT)
        sums = torch.zeros(3, dtype=logits.dtype, device=logits.device)
        for item in range(len(logits)):
            power = data["power"][item]
            slices = [_slice_terms(logits[item, :, channel], data["codes"][item, :, channel], power[channel],
                                   entropy_weight[item, channel], root[item, channel])
                      for channel in range(logits.shape[2])]
            error = data["rest"][item] + sum(part["errors"] for part in slices)
            factor, decibel = _decibels(error, data["energy"][item], power.sum(), weights, len(logits))
            for channel, part in enumerate(slices):
                _gradient(part, power[channel], root[item, channel], factor, gradient[item, :, channel])
            sums += torch.stack([sum(part["entropy"] for part in slices),
                                 sum(part["amplitude"] for part in slices), decibel])
        context.save_for_backward(gradient)
        total = sums[0] + sums[1] + weights.decibel * sums[2]
        return torch.stack([total, sums[0] / weights.entropy, sums[1] / weights.amplitude, sums[2]])

    @staticmethod
    def backward(context: Any, above: torch.Tensor) -> tuple[torch.Tensor, None, None]:
        gradient, = context.saved_tensors
        return gradient * above[0], None, None


def _slice_terms(logits: torch.Tensor, codes: torch.Tensor, power: torch.Tensor, entropy_weight: torch.Tensor,
                 root: torch.Tensor) -> dict[str, torch.Tensor]:
    """A channel of a crop: its masks, its part of each term, and the cross-entropy's gradient by the logits."""
    ratio = dequantise(codes.to(logits.dtype))
    logs = torch.log_softmax(logits, dim=0)
    target = shares(ratio)
    entropy = -(target * logs).sum(dim=0).mul_(entropy_weight).sum()
    masks = logs.exp_()
    torch.sub(masks, target, out=target)
    difference = torch.sub(masks[:STEM_COUNT], ratio, out=ratio)
    squares = difference.square().reshape(STEM_COUNT, -1)
    errors, amplitudes = (squares @ torch.stack([power.flatten(), root.flatten()], dim=1)).unbind(dim=1)
    return {"masks": masks, "difference": difference, "entropy": entropy, "amplitude": amplitudes.sum(),
            "errors": errors, "gradient": target.mul_(entropy_weight)}


def _decibels(errors: torch.Tensor, energies: torch.Tensor, whole: torch.Tensor, weights: LossWeights,
              batch: int) -> tuple[torch.Tensor, torch.Tensor]:
    """A crop's part of the mean of 10 log10((error + eps) / (energy + eps)), and its derivative [6] by P (m - R)."""
    whole = whole.clamp(min=1.0)  # it is the number of bands, or 0 if the crop is silent
    error = errors.clamp(min=0) / whole + weights.epsilon
    energy = energies / whole + weights.epsilon
    count = batch * STEM_COUNT
    factor = weights.decibel * 20 / math.log(10) / (error * whole * count)
    return factor, 10 * torch.log10(error / energy).sum() / count


def _gradient(part: dict[str, torch.Tensor], power: torch.Tensor, root: torch.Tensor, factor: torch.Tensor,
              result: torch.Tensor) -> None:
    """Puts the gradient by the logits of a channel of a crop into result [7, ...]."""
    stems = part["masks"][:STEM_COUNT]
    by_mask = power * factor.view(-1, *[1] * power.dim())
    by_mask.add_(root, alpha=2).mul_(part["difference"]).mul_(stems)
    torch.addcmul(part["gradient"], part["masks"], by_mask.sum(dim=0), value=-1, out=result)
    result[:STEM_COUNT] += by_mask

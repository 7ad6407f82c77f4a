# SPDX-License-Identifier: MIT
"""A network that draws six masks over a spectrogram: small, untrained, and a starting point for your own."""
import torch
from torch import nn

STEMS = ("vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass")
FRAMES, BINS = 256, 2048


class MaskNetwork(nn.Module):
    """From the spectrogram of both channels to six masks for each: a softmax over the stems and a rest, so that the six
    never add up to more than the input."""

    def __init__(self, width: int = 12) -> None:
        super().__init__()
        classes = len(STEMS) + 1
        self.layers = nn.Sequential(
            nn.Conv2d(2, width, 3, padding=1), nn.ReLU(),
            nn.Conv2d(width, width, 3, padding=1), nn.ReLU(),
            nn.Conv2d(width, 2 * classes, 1))

    def masks(self, power: torch.Tensor) -> torch.Tensor:
        """power: [2, FRAMES, BINS], at most 1. Returns [6, 2, FRAMES, BINS]."""
        features = 1 + 0.1 * torch.log10(power + 1e-10)  # 0 is silence, 1 is the loudest bin
        logits = self.layers(features.unsqueeze(0))
        return torch.softmax(logits.view(len(STEMS) + 1, 2, FRAMES, BINS), dim=0)[:-1]

    def forward(self, spectrum: torch.Tensor) -> tuple[torch.Tensor, ...]:
        """spectrum: [1, 4, FRAMES, BINS] as the library gives it: real and imaginary parts of the left channel, then
        of the right one. Returns six such spectra."""
        parts = spectrum.view(2, 2, FRAMES, BINS)  # channel, real or imaginary
        level = parts.abs().amax(dim=(0, 1, 2, 3)).clamp(min=1e-30)  # squares of very quiet sound would vanish
        masks = self.masks((parts / level).square().sum(dim=1))
        return tuple((parts * masks[stem].unsqueeze(1)).view(1, 4, FRAMES, BINS) for stem in range(len(STEMS)))


def example() -> "MaskNetwork":
    """The same network every time. Training would put weights here that mean something."""
    torch.manual_seed(1)
    network = MaskNetwork()
    for layer in network.layers:
        if isinstance(layer, nn.Conv2d):
            nn.init.normal_(layer.weight, std=(4 / layer.weight[0].numel()) ** 0.5)  # so that the masks do differ
    return network.eval()

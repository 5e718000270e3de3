"""Everything that a training run carries from step to step, and its checkpoints."""
import os

import torch

from . import tables
from .network import Network


def optimiser_of(net, decay):
    """AdamW; weights decay, biases, gains and slopes do not."""
    matrices = [p for name, p in net.named_parameters() if "weight" in name]
    others = [p for name, p in net.named_parameters() if "weight" not in name]
    groups = [{"params": matrices, "weight_decay": decay}, {"params": others, "weight_decay": 0.}]
    return torch.optim.AdamW(groups, lr=0., betas=(.95, .999))


class State:
    def __init__(self, device="cpu", weight_decay=.01, average=.999):
        self.device, self.average_factor = device, average
        self.net = Network().to(device)
        self.optimiser = optimiser_of(self.net, weight_decay)
        self.averaged = Network().to(device)
        self.averaged.load_state_dict(self.net.state_dict())
        self.step, self.seconds_heard = 0, 0.
        self.first_step, self.seconds_used = 0, 0.  # where the run began, and how long it has been going

    def load(self, path):
        """A checkpoint (.pt), or a parameter file to start from."""
        if str(path).endswith(".safetensors"):
            tables.load(path, self.net)
            self.averaged.load_state_dict(self.net.state_dict())
            return
        saved = torch.load(path, map_location=self.device)
        self.net.load_state_dict(saved["net"])
        self.averaged.load_state_dict(saved["averaged"])
        options = [{k: group[k] for k in ("weight_decay", "betas")} for group in self.optimiser.param_groups]
        self.optimiser.load_state_dict(saved["optimiser"])
        for group, own in zip(self.optimiser.param_groups, options):
            group.update(own)
        self.step, self.seconds_heard = saved["step"], saved["seconds_heard"]
        self.first_step, self.seconds_used = saved.get("first_step", self.step), saved.get("seconds_used", 0.)

    def save(self, path):
        torch.save({"net": self.net.state_dict(), "averaged": self.averaged.state_dict(),
                    "optimiser": self.optimiser.state_dict(), "step": self.step, "seconds_heard": self.seconds_heard,
                    "first_step": self.first_step, "seconds_used": self.seconds_used},
                   f"{path}.new")
        os.replace(f"{path}.new", path)

    def advance(self, loss, rate, clip):
        """One step; returns the norm of the gradient. A gradient that is not finite changes nothing but the count."""
        for group in self.optimiser.param_groups:
            group["lr"] = rate
        self.optimiser.zero_grad(set_to_none=True)
        loss.backward()
        norm = float(torch.nn.utils.clip_grad_norm_(self.net.parameters(), clip))
        if norm < float("inf"):
            self.optimiser.step()
            with torch.no_grad():
                for mean, now in zip(self.averaged.parameters(), self.net.parameters()):
                    mean.lerp_(now, 1 - self.average_factor)
        self.step += 1
        return norm

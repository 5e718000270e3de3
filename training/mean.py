#!/usr/bin/python3
"""Writes the mean of two parameter files' weights. Where one was trained on from the other it may do more of what each
of them can than either (Wortsman et al., "Model soups", 2022): score it before it is shipped."""
import argparse

from vqns_training import tables
from vqns_training.network import Network

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("first")
parser.add_argument("second")
parser.add_argument("out")
parser.add_argument("--share", type=float, default=.5, help="of the second")


def main(arguments=None):
    a, networks = parser.parse_args(arguments), (Network(), Network())
    _, about = (tables.load(path, net) for path, net in zip((a.first, a.second), networks))
    first, second = (net.state_dict() for net in networks)
    weights = {name: (1 - a.share) * first[name] + a.share * second[name] for name in first}
    kept = {name: about[name] for name in ("step", "hours_heard") if name in about}
    tables.save(a.out, weights, **kept, share_in_mean=a.share)


if __name__ == "__main__":
    main()

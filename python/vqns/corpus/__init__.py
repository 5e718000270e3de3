"""Noise suppression for whole corpora: `python3 -m vqns.corpus IN_TREE OUT_TREE`.

Runs on Dask, with local worker processes or on a cluster, whose workers need this package and python3-soundfile too.
"""

"""Batch queries over the partitions of a Dask DataFrame.

Each worker process reads and compiles the network once (kept per process by
path) and answers its partitions with Domain.beliefs_batch.

    >>> import dask.dataframe as dd, orvel.dask
    >>> ddf = dd.from_pandas(evidence, npartitions=8)
    >>> result = orvel.dask.beliefs(ddf, "networks/alarm.net").compute()
"""

import os

import numpy as np

from . import Domain

__all__ = ["beliefs", "column_names"]

_domains = {}


def _domain(path):
    """The compiled domain of a network file, read once per process."""
    key = os.path.abspath(path)
    domain = _domains.get(key)
    if domain is None:
        domain = Domain.load(key)
        domain.compile()
        _domains[key] = domain
    return domain


def column_names(network_path, nodes=None):
    """The columns of the frames that beliefs returns: one 'node=state' per
    state of each node."""
    domain = _domain(network_path)
    names = list(nodes) if nodes is not None else domain._chance_names()
    return ["%s=%s" % (name, state) for name in names for state in domain.node(name).states]


def _partition(frame, network_path, nodes, threads):
    import pandas as pd

    domain = _domain(network_path)
    names = list(nodes) if nodes is not None else domain._chance_names()
    result = domain.beliefs_batch(frame, nodes=names, threads=threads)
    if len(frame) == 0:
        data = np.zeros((0, len(column_names(network_path, names))))
    else:
        data = np.hstack([result[name] for name in names])
    return pd.DataFrame(data, index=frame.index, columns=column_names(network_path, names))


def beliefs(ddf, network_path, nodes=None, threads=1):
    """Answers one query per row of a Dask DataFrame of evidence (as
    Domain.beliefs_batch) over its partitions; returns a lazy Dask DataFrame
    with the same index and one float column 'node=state' per state of each
    node (the discrete chance nodes, or `nodes`). The network file must be
    readable by the workers under the same path."""
    import pandas as pd

    path = os.path.abspath(os.fspath(network_path))
    meta = pd.DataFrame({c: pd.Series([], dtype=float) for c in column_names(path, nodes)})
    return ddf.map_partitions(_partition, path, nodes, threads, meta=meta)

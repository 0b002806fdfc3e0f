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

__all__ = ["beliefs", "column_names", "learn_tables"]

_domains = {}


def _domain(path, purpose="beliefs"):
    """The compiled domain of a network file, read once per process (and
    purpose: EM changes the tables of its own copy)."""
    key = (os.path.abspath(path), purpose)
    domain = _domains.get(key)
    if domain is None:
        domain = Domain.load(key[0])
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


def _expected_counts(frame, network_path, tables):
    domain = _domain(network_path, "em")
    for name, table in tables.items():
        domain.node(name).table = table
    names = [str(c) for c in frame.columns]
    return domain._expected_counts(names, domain._codes(frame, names))


def learn_tables(ddf, network_path, max_iterations=100, tolerance=1e-4):
    """EM over the rows of a Dask DataFrame of cases (columns: node names; cells:
    labels or state indices; NaN/None missing): the E-step on the workers, each
    partition's expected family counts summed in the driver, the M-step (the
    counts normalised per parent configuration) in the driver. Starts from the
    network's tables, stops when the relative change of the log-likelihood is
    within `tolerance` or after `max_iterations`. Returns the driver's
    compiled Domain with the learned tables and the final log-likelihood (of
    the tables before the last M-step)."""
    import dask

    path = os.path.abspath(os.fspath(network_path))
    domain = Domain.load(path)
    domain.compile()
    parts = ddf.to_delayed()
    previous = None
    log_likelihood = None
    for _ in range(max_iterations):
        tables = {n.name: n.table for n in domain.nodes if n.category == "chance"}
        results = dask.compute(*[dask.delayed(_expected_counts)(p, path, tables) for p in parts])
        log_likelihood = sum(r[1] for r in results)
        for name in tables:
            counts = sum(r[0][name] for r in results)
            totals = counts.sum(axis=-1, keepdims=True)
            # a parent configuration no case reaches keeps its distribution
            domain.node(name).table = np.where(totals > 0, counts / np.where(totals > 0, totals, 1), tables[name])
        if previous is not None and abs(log_likelihood - previous) <= tolerance * abs(log_likelihood):
            break
        previous = log_likelihood
    return domain, log_likelihood

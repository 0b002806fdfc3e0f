import numpy as np
import pandas as pd
import pytest

import orvel
from conftest import path


def evidence_frame(domain, rows, seed):
    """Cases drawn from the network with about four in five entries blanked."""
    cases = domain.simulate(rows, seed=seed).astype(object)
    return cases.mask(np.random.default_rng(seed).random(cases.shape) < 0.8)


def one_at_a_time(domain, frame, names):
    out = {name: [] for name in names}
    for _, row in frame.iterrows():
        try:
            domain.query({k: v for k, v in row.items() if isinstance(v, str)})
            for name in names:
                out[name].append(domain.beliefs(name))
        except orvel.Error as e:
            assert e.code == "inconsistency_or_underflow"
            for name in names:
                out[name].append(np.full(domain[name].number_of_states, np.nan))
    return {name: np.array(rows) for name, rows in out.items()}


def test_batch_equals_one_at_a_time_exactly():
    d = orvel.load(path("networks", "alarm.net"))
    d.compile()
    frame = evidence_frame(d, 150, seed=5)
    expected = one_at_a_time(d, frame, [n.name for n in d.nodes])
    for threads in (1, 7):  # more threads than this machine has cores
        got = d.beliefs_batch(frame, threads=threads)
        assert got.keys() == expected.keys()
        for name in expected:
            np.testing.assert_array_equal(got[name], expected[name])
    # state indices, a node subset, and an impossible row (WetGrass cannot be wet with neither cause)
    s = orvel.load(path("examples", "sprinkler.net"))
    s.compile()
    frame = pd.DataFrame({"Sprinkler": [1, 1, None], "Rain": ["no", "no", None], "WetGrass": ["no", "yes", "yes"]})
    got = s.beliefs_batch(frame, nodes=["Cloudy"], threads=3)
    np.testing.assert_array_equal(got["Cloudy"], one_at_a_time(s, frame.replace({1: "off"}), ["Cloudy"])["Cloudy"])
    assert np.isnan(got["Cloudy"][1]).all() and not np.isnan(got["Cloudy"][[0, 2]]).any()


def test_dask_partitions_equal_the_threaded_batch(tmp_path):
    distributed = pytest.importorskip("distributed")
    import dask.dataframe as dd

    import orvel.dask

    d = orvel.load(path("networks", "asia.net"))
    d.compile()
    frame = evidence_frame(d, 400, seed=9)
    expected = d.beliefs_batch(frame, threads=2)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster:
        with distributed.Client(cluster):
            result = orvel.dask.beliefs(dd.from_pandas(frame, npartitions=4), path("networks", "asia.net")).compute()
            # EM with the E-step on the workers takes the library's own EM steps
            learned, _ = orvel.dask.learn_tables(dd.from_pandas(frame, npartitions=3), path("networks", "asia.net"),
                                                 max_iterations=3, tolerance=0)
    assert list(result.index) == list(frame.index)
    np.testing.assert_array_equal(result.to_numpy(), np.hstack([expected[n.name] for n in d.nodes]))
    assert result.columns[0] == "asia=yes"
    d.learn_tables(frame, max_iterations=3, tolerance=1e-12)
    for node in d.nodes:
        np.testing.assert_allclose(learned[node.name].table, node.table, atol=2e-6)


def test_pictures(tmp_path):
    import matplotlib

    matplotlib.use("Agg")
    import orvel.plot

    d = orvel.load(path("networks", "asia.net"))
    d.compile()
    d.query({"smoke": "yes"})
    fig = orvel.plot.beliefs(d, ["lung", "smoke"])
    widths = [[bar.get_width() for bar in ax.patches] for ax in fig.axes]
    np.testing.assert_allclose(widths, [d.beliefs("lung"), d.beliefs("smoke")])
    svg = d._repr_svg_()
    assert "<svg" in svg and "lung" in svg
    assert "either" in orvel._listing_svg(d)

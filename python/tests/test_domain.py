import gc
import itertools

import numpy as np
import pandas as pd
import pytest

import orvel
from conftest import path, tool


def tiny(rng):
    """Three nodes A -> B, A -> C, B -> C with random tables, built in code."""
    d = orvel.Domain()
    tables = {
        "A": rng.dirichlet(np.ones(3)),
        "B": rng.dirichlet(np.ones(2), size=3),
        "C": rng.dirichlet(np.ones(2), size=(3, 2)),
    }
    d.new_node("A", ["a0", "a1", "a2"], table=tables["A"])
    d.new_node("B", ["b0", "b1"], parents=["A"], table=tables["B"])
    d.new_node("C", ["c0", "c1"], parents=["A", "B"], table=tables["C"])
    joint = tables["A"][:, None, None] * tables["B"][:, :, None] * tables["C"]
    return d, joint.astype(np.float32).astype(float)


def test_beliefs_marginals_and_evidence_match_enumeration():
    rng = np.random.default_rng(7)
    d, joint = tiny(rng)
    d.compile(method="fill-in-size")
    likelihood = np.array([0.2, 0.7])
    d.query({"C": "c1", "B": likelihood})
    weighted = joint * likelihood[None, :, None] * np.array([0.0, 1.0])[None, None, :]
    pe = weighted.sum()
    assert d.probability_of_evidence == pytest.approx(pe, rel=1e-5)
    assert d.log_probability_of_evidence == pytest.approx(np.log(pe), abs=1e-5)
    for axis, name in enumerate("ABC"):
        other = tuple(i for i in range(3) if i != axis)
        np.testing.assert_allclose(d.beliefs(name), weighted.sum(axis=other) / pe, atol=1e-6)
    np.testing.assert_allclose(d.marginal(["C", "A"]), weighted.sum(axis=1).T / pe, atol=1e-6)
    frame = d.beliefs_frame()
    assert frame.loc[("A", "a2"), "belief"] == d.beliefs("A")[2]
    # max propagation: each state's belief is its best configuration relative to the best overall
    d.query({"C": 0}, equilibrium="max")
    best = joint[:, :, 0]
    np.testing.assert_allclose(d.beliefs("A"), best.max(axis=1) / best.max(), atol=1e-6)


def test_beliefs_and_utilities_equal_the_c_library():
    d = orvel.load(path("networks", "asia.net"))
    d.compile()
    d.query({"smoke": "yes", "xray": [0.3, 0.9]})
    expected = tool("beliefs", path("networks", "asia.net"), "-e", "smoke=yes", "-l", "xray=0.3,0.9")
    for name, node in expected["nodes"].items():
        assert d[name].states == node["states"]
        np.testing.assert_array_equal(np.float32(d.beliefs(name)), np.float32(node["beliefs"]))
    assert np.float32(d.probability_of_evidence) == np.float32(expected["probability_of_evidence"])

    oil = orvel.load(path("examples", "oil_wildcatter.net"))
    oil.compile()
    oil.query({"Test": "yes"})
    expected = tool("beliefs", path("examples", "oil_wildcatter.net"), "-e", "Test=yes")
    assert np.float32(oil.expected_utility) == np.float32(expected["maximum_expected_utility"])
    for name in ("Test", "Drill"):
        np.testing.assert_array_equal(
            np.float32(oil[name].expected_utilities()), np.float32(expected["nodes"][name]["expected_utilities"])
        )


@pytest.mark.parametrize("extension", [".net", ".kb", ".bif", ".xml", ".uai"])
def test_formats_round_trip(tmp_path, extension):
    d = orvel.load(path("networks", "asia.net"))
    d.compile()
    d.query({"dysp": "yes"})
    before = np.concatenate([d.beliefs(n.name) for n in d.nodes])
    d.save(tmp_path / ("asia" + extension))
    e = orvel.load(tmp_path / ("asia" + extension))
    if not e.is_compiled:
        e.compile()
    # UAI keeps no names: nodes are matched by place
    dysp = "dysp" if extension != ".uai" else e.nodes[[n.name for n in d.nodes].index("dysp")].name
    e.query({dysp: 0})
    after = np.concatenate([e.beliefs(n.name) for n in e.nodes])
    np.testing.assert_allclose(after, before, atol=1e-6)


def test_errors_carry_code_names_and_line(tmp_path, sprinkler):
    with pytest.raises(orvel.Error) as e:
        sprinkler.set_evidence({"Rain": "maybe"})
    assert (e.value.code, e.value.node, e.value.state) == ("usage", "Rain", "maybe")
    assert "node 'Rain' has no state 'maybe'" in str(e.value)
    with pytest.raises(orvel.Error) as e:
        sprinkler.beliefs("Snow")
    assert (e.value.code, e.value.node) == ("usage", "Snow")
    with pytest.raises(orvel.Error) as e:
        sprinkler.beliefs_batch(pd.DataFrame({"Cloudy": ["yes", "grey"]}))
    assert (e.value.node, e.value.state) == ("Cloudy", "grey")
    bad = tmp_path / "bad.net"
    bad.write_text("net\n{\n}\nnode A\n{\n  states = (\"x\" \"y\");\n}\npotential (A) { data = (0.5 0.5) }\n")
    with pytest.raises(orvel.Error) as e:
        orvel.load(bad)
    assert e.value.code == "parse" and e.value.line == 8 and e.value.messages
    assert e.value.description.startswith("An error occurred during parsing")
    sprinkler.set_evidence({"Rain": "yes", "Cloudy": "no"})
    sprinkler["Sprinkler"].select_state("on")
    sprinkler["WetGrass"].enter_likelihood([0, 0])
    with pytest.raises(orvel.Error) as e:
        sprinkler.propagate()
    assert e.value.code == "inconsistency_or_underflow"


def test_nodes_keep_their_domain_alive():
    d = orvel.load(path("examples", "sprinkler.net"))
    d.compile()
    d.query({"WetGrass": "yes"})
    rain = d["Rain"]
    expected = d.beliefs("Rain")
    del d
    gc.collect()
    np.testing.assert_array_equal(rain.beliefs(), expected)
    assert [p.name for p in rain.parents] == ["Cloudy"]


def test_simulate_and_learn_from_frames():
    d = orvel.load(path("examples", "sprinkler.net"))
    d.compile()
    cases = d.simulate(20000, seed=11)
    assert list(cases.columns) == ["Cloudy", "Sprinkler", "Rain", "WetGrass"] and len(cases) == 20000
    truth = {n.name: n.table for n in d.nodes}
    # a fifth of the entries missing, learned from uniform tables
    mask = np.random.default_rng(3).random(cases.shape) < 0.2
    learner = orvel.load(path("examples", "sprinkler.net"))
    for node in learner.nodes:
        node.table = np.full(node.table.shape, 0.5)
    learner.learn_tables(cases.mask(mask))
    for name, table in truth.items():
        np.testing.assert_allclose(learner[name].table, table, atol=0.06)

    learned = orvel.Domain.learn_structure(cases)
    edges = {frozenset((p.name, n.name)) for n in learned.nodes for p in n.parents}
    assert edges == {frozenset(e) for e in [("Cloudy", "Sprinkler"), ("Cloudy", "Rain"), ("Sprinkler", "WetGrass"), ("Rain", "WetGrass")]}
    assert learned.is_compiled and learned.log_likelihood < 0


def test_continuous_values_means_and_variances_equal_the_c_library():
    pump = orvel.load(path("examples", "pump.net"))
    pump.compile()
    pump.query({"Sensor1": 7.2, "Sensor2": 6.8})
    expected = tool("beliefs", path("examples", "pump.net"), "-v", "Sensor1=7.2", "-v", "Sensor2=6.8")
    for name, node in expected["nodes"].items():
        if "mean" in node:
            assert pump[name].kind == "continuous"
            assert np.float32(pump[name].mean) == np.float32(node["mean"])
            assert np.float32(pump[name].variance) == np.float32(node["variance"])
        else:
            np.testing.assert_array_equal(np.float32(pump.beliefs(name)), np.float32(node["beliefs"]))
    assert "Flow" not in pump.beliefs_frame().index.get_level_values("node")
    with pytest.raises(orvel.Error) as error:
        pump.query({"Flow": "high"})
    assert error.value.code == "usage"


def test_approximation_keeps_beliefs_within_its_bound():
    exact = orvel.load(path("networks", "alarm.net"))
    exact.compile()
    approximated = exact.clone()
    removed = approximated.approximate(0.01)
    assert 0 < removed < 0.01 * 50
    evidence = {"HRBP": "HIGH", "VENTLUNG": "ZERO"}
    exact.query(evidence)
    approximated.query(evidence)
    bound = removed / ((1 - removed) * approximated.probability_of_evidence)
    for name in exact._chance_names():
        assert np.abs(approximated.beliefs(name) - exact.beliefs(name)).max() <= bound + 1e-6


def test_compression_after_approximation_keeps_the_beliefs():
    plain, compressed = (orvel.load(path("networks", "alarm.net")) for _ in range(2))
    for domain in (plain, compressed):
        domain.compile()
        domain.approximate(0.01)
    assert compressed.compress() > 0 and compressed.is_compressed and not plain.is_compressed
    evidence = {"HRBP": "HIGH", "VENTLUNG": "ZERO"}
    plain.query(evidence)
    compressed.query(evidence)
    for name in plain._chance_names():
        np.testing.assert_allclose(compressed.beliefs(name), plain.beliefs(name), atol=1e-6)


def test_policy_of_the_oil_wildcatter():
    oil = orvel.load(path("examples", "oil_wildcatter.net"))
    oil.compile()
    oil.propagate()
    names, policy = oil["Drill"].policy()
    assert names[-1] == "Drill" and sorted(names[:-1]) == ["Seismic", "Test"]
    policy = np.moveaxis(policy, [names.index("Seismic"), names.index("Test")], [0, 1])
    seismic, test = oil["Seismic"].states, oil["Test"].states
    # after a diffuse test result, do not drill; with no test, drill
    assert policy[seismic.index("diffuse"), test.index("yes")].argmax() == oil["Drill"].states.index("no")
    assert policy[seismic.index("none"), test.index("no")].argmax() == oil["Drill"].states.index("yes")
    _, values = oil["Test"].policy(utilities=True)
    np.testing.assert_allclose(values, oil["Test"].expected_utilities(), rtol=1e-6)


def test_limited_memory_of_the_oil_wildcatter():
    oil = orvel.load(path("examples", "oil_wildcatter.net"))
    oil.limited_memory = True
    oil.compile()
    oil.propagate()
    # Drill sees both Test and Seismic: the same optimum as with no-forgetting
    assert oil.limited_memory
    assert oil.expected_utility == pytest.approx(22.5, rel=1e-6)
    names, _ = oil["Drill"].policy()
    assert names == ["Seismic", "Test", "Drill"]

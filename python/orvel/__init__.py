"""Bayesian networks and influence diagrams: load or build a network, compile it,
enter evidence, propagate, and read beliefs, joint marginals, the probability of
the evidence and expected utilities; simulate, learn tables and structure from
pandas DataFrames, and answer many queries at once on several threads.

    >>> import orvel
    >>> d = orvel.load("examples/sprinkler.net")
    >>> d.compile()
    >>> d.set_evidence({"WetGrass": "yes"})
    >>> d.propagate()
    >>> d.beliefs("Rain")
    array([0.708..., 0.291...])

Failures of the library raise orvel.Error, which carries the library's error
name (.code), its description (.description) and, for parse errors, the line.
"""

import os
import shutil
import subprocess
import tempfile

import numpy as np

from . import _orvel
from ._orvel import Error, Node

__all__ = ["Domain", "Node", "Error", "load"]

_FORMATS = {".net": "net", ".kb": "kb", ".bif": "bif", ".xml": "xmlbif", ".xmlbif": "xmlbif", ".uai": "uai"}


def _format_of(path, format):
    if format is not None:
        return format
    return _FORMATS.get(os.path.splitext(str(path))[1].lower(), "net")


def _usage(text, node=None, state=None):
    error = Error(text + ": usage")
    error.code, error.description, error.line, error.messages = "usage", text, None, []
    error.node, error.state = node, state
    return error


class Domain(_orvel.Domain):
    """A Bayesian network or influence diagram with its compiled state and evidence.

    Create an empty one with Domain() and add nodes with new_node, or read one with
    Domain.load(path) / orvel.load(path). Then compile(), set_evidence({...}),
    propagate(), and read beliefs(node), beliefs_frame(), marginal([...]),
    probability_of_evidence, expected_utility. beliefs_batch answers one query per
    row of a DataFrame on several threads. Nodes are reached by name: domain["Rain"].

    A domain must not be used from two threads at once; beliefs_batch works on
    private copies of it.
    """

    @classmethod
    def load(cls, path, format=None):
        """Reads a network file: NET, KB, BIF, XMLBIF or UAI, told by the extension
        (.net, .kb, .bif, .xml/.xmlbif, .uai; anything else is NET) unless `format`
        names it ('net', 'kb', 'bif', 'xmlbif', 'uai')."""
        domain = cls()
        domain._adopt(_orvel._load(os.fspath(path), _format_of(path, format)))
        return domain

    def save(self, path, format=None):
        """Writes the domain in the format of the path's extension (see load)."""
        self._save(os.fspath(path), _format_of(path, format))

    def clone(self):
        """A deep, independent copy: compiled state and evidence included."""
        copy = type(self)()
        copy._adopt(self._clone())
        return copy

    def new_node(self, name, states, parents=(), table=None, category="chance"):
        """Adds a discrete node with the given state labels and parents (names or
        Nodes, which keep this order: the first is the table's first axis) and,
        optionally, its table (see Node.table); returns the Node.
        category is 'chance', 'decision' or 'utility' (a utility node has no
        states: pass states=())."""
        node = self._new_node(category)
        node.name = name
        if category != "utility":
            node.states = list(states)
        # a new parent goes first: add them last to first to keep their order
        for parent in reversed(list(parents)):
            node.add_parent(parent if isinstance(parent, Node) else self.node(parent))
        if table is not None:
            node.table = table
        return node

    def compile(self, method=None, save_to_memory=True):
        """Compiles the domain into a junction forest. `method` picks the
        triangulation: 'clique-size', 'clique-weight', 'fill-in-size',
        'fill-in-weight' or 'total-weight' (None: the library's default).
        save_to_memory keeps a copy of the initial tables, which makes repeated
        queries cheaper at the cost of memory."""
        self._compile(method, save_to_memory)

    def query(self, evidence=None, equilibrium="sum"):
        """set_evidence(evidence) then propagate(equilibrium)."""
        self.set_evidence(evidence or {})
        self.propagate(equilibrium)

    def beliefs_frame(self, nodes=None):
        """The beliefs of the discrete chance nodes (or of `nodes`) as a DataFrame
        with one row per (node, state) and a column 'belief'."""
        import pandas as pd

        names = nodes if nodes is not None else self._chance_names()
        rows, index = [], []
        for name in names:
            node = self.node(name)
            for state, belief in zip(node.states, node.beliefs()):
                index.append((name, state))
                rows.append(belief)
        return pd.DataFrame({"belief": rows}, index=pd.MultiIndex.from_tuples(index, names=["node", "state"]))

    def _chance_names(self):
        return [n.name for n in self.nodes if n.category == "chance" and n.kind == "discrete"]

    def _codes(self, frame, names):
        """State indices of a frame's columns: labels, or integer state indices;
        -1 where a cell is missing."""
        return self._encode(names, [frame[name].to_numpy(dtype=object) for name in names])

    def beliefs_batch(self, evidence_frame, nodes=None, threads=1, equilibrium="sum"):
        """Answers one query per row of `evidence_frame` (columns: node names;
        cells: state labels or indices; NaN or None: no evidence) on `threads`
        threads, each on its own copy of the compiled domain, with the GIL
        released. Returns a dict from node name to an array of beliefs (rows x
        states) for the discrete chance nodes, or for `nodes`. A row whose
        evidence is impossible gets NaN. The results equal those of
        query(row) then beliefs(node), row by row."""
        names = [str(c) for c in evidence_frame.columns]
        out = list(nodes) if nodes is not None else self._chance_names()
        codes = self._codes(evidence_frame, names)
        arrays = self._batch(names, codes, out, int(threads), equilibrium)
        return dict(zip(out, arrays))

    def simulate(self, n, nodes=None, seed=None):
        """Draws n cases (given the evidence when compiled, which it propagates,
        else from the tables) as a DataFrame of categorical columns, one per discrete chance
        node (or per name in `nodes`)."""
        import pandas as pd

        if seed is not None:
            self.seed(seed)
        if self.is_compiled:
            self.propagate()
        names = list(nodes) if nodes is not None else self._chance_names()
        codes = self._simulate(int(n), names)
        return pd.DataFrame(
            {
                name: pd.Categorical.from_codes(codes[:, j], categories=self.node(name).states)
                for j, name in enumerate(names)
            }
        )

    def set_cases(self, frame, counts=None):
        """Replaces the domain's cases by the rows of a DataFrame (columns: node
        names; cells: labels or state indices; NaN/None missing), with optional
        case counts (weights)."""
        names = [str(c) for c in frame.columns]
        weights = np.asarray(counts if counts is not None else [], dtype=float)
        self._set_cases(names, self._codes(frame, names), weights)

    def learn_tables(self, frame=None, counts=None, max_iterations=None, tolerance=None):
        """Fits the tables of the chance nodes to the cases by EM (missing values
        allowed), starting from the current tables, and leaves the domain
        compiled. frame: a DataFrame of cases (see set_cases), or None for the
        cases already held. Returns the final log-likelihood."""
        if frame is not None:
            self.set_cases(frame, counts)
        if not self.is_compiled:
            self.compile()
        self._learn_tables(max_iterations, tolerance)
        return self.log_likelihood

    @classmethod
    def learn_structure(cls, frame, significance=None, learn_tables=True):
        """Learns a network from a DataFrame: one discrete node per column (the
        states of a categorical column are its categories, else its distinct
        values in order of first appearance), edges from tests of conditional
        independence, then (learn_tables=True) tables by EM. Returns the domain,
        compiled when tables were learned."""
        import pandas as pd

        domain = cls()
        for name in frame.columns:
            column = frame[name]
            if isinstance(column.dtype, pd.CategoricalDtype):
                states = [str(s) for s in column.cat.categories]
            else:
                states = [str(s) for s in pd.unique(column.dropna())]
            domain.new_node(str(name), states)
        labels = frame.apply(lambda c: c.astype(object).where(c.notna(), None).map(lambda v: v if v is None else str(v)))
        domain.set_cases(labels)
        domain._learn_structure(significance)
        if learn_tables:
            for node in domain.nodes:
                table = node.table
                node.table = np.full(table.shape, 1.0 / node.number_of_states)
            domain.learn_tables()
        return domain

    def save_dot(self, path, form="network"):
        """Writes the network as Graphviz DOT: form 'network', 'beliefs' (a
        compiled domain, each node with bars of its beliefs) or 'junction-tree'."""
        forms = {"network": 0, "beliefs": 1, "junction-tree": 2, "junction_tree": 2}
        if form not in forms:
            raise _usage("unknown picture form '%s'" % form)
        self._save_dot(os.fspath(path), forms[form])

    def _repr_svg_(self):
        """The network drawn by Graphviz's dot program (beliefs when compiled);
        without dot, an SVG listing of the nodes and their parents."""
        dot = shutil.which("dot")
        with tempfile.TemporaryDirectory() as tmp:
            path = os.path.join(tmp, "domain.dot")
            self.save_dot(path, "beliefs" if self.is_compiled else "network")
            if dot is not None:
                result = subprocess.run([dot, "-Tsvg", path], capture_output=True, check=False)
                if result.returncode == 0:
                    return result.stdout.decode("utf-8")
        return _listing_svg(self)

    def __repr__(self):
        return "<orvel.Domain of %d nodes%s>" % (len(self), ", compiled" if self.is_compiled else "")


def _listing_svg(domain):
    from xml.sax.saxutils import escape

    lines = []
    for node in domain.nodes:
        parents = ", ".join(p.name for p in node.parents)
        lines.append("%s (%s)%s" % (node.name, node.category, " <- " + parents if parents else ""))
    body = "".join(
        '<text x="4" y="%d" font-family="monospace" font-size="12">%s</text>' % (16 * (i + 1), escape(line))
        for i, line in enumerate(lines)
    )
    return '<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d">%s</svg>' % (
        8 + 8 * max([len(line) for line in lines] + [1]),
        16 * len(lines) + 8,
        body,
    )


def load(path, format=None):
    """Reads a network file into a Domain (see Domain.load)."""
    return Domain.load(path, format)

"""Bar charts of beliefs with matplotlib."""

__all__ = ["beliefs"]


def beliefs(domain, nodes=None, ax=None):
    """Draws the beliefs of each node (names or Nodes; default: every discrete
    chance node) as horizontal bars, one subplot per node; returns the Figure.
    The domain must be propagated."""
    import matplotlib.pyplot as plt

    names = [n if isinstance(n, str) else n.name for n in (nodes if nodes is not None else domain._chance_names())]
    if ax is None:
        fig, axes = plt.subplots(len(names), 1, figsize=(4, 1.0 + 0.35 * sum(domain.node(n).number_of_states for n in names)),
                                 squeeze=False)
        axes = axes[:, 0]
    else:
        axes = [ax] if len(names) == 1 else ax
        fig = axes[0].figure
    for axis, name in zip(axes, names):
        node = domain.node(name)
        values = node.beliefs()
        axis.barh(range(len(values)), values)
        axis.set_yticks(range(len(values)), node.states)
        axis.set_xlim(0, 1)
        axis.invert_yaxis()
        axis.set_title(name, fontsize="small")
    fig.tight_layout()
    return fig

# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""How the charts of the pages look: on no background, in colours that can be read on white and on
black; and their bytes depend on nothing but what is drawn."""

import io
import re

import matplotlib

matplotlib.use("svg")

from matplotlib import pyplot  # noqa: E402

INK, GRID, STRIPE = "#757d88", (0.5, 0.5, 0.5, 0.3), (0.5, 0.5, 0.5, 0.1)
# Colours that colour-blind people can tell apart.
COLOURS = ("#0072b2", "#009e73", "#cc79a7", "#56b4e9", "#e69f00", "#9467bd")
LIBRARY = "#d55e00"

matplotlib.rcParams.update({
    "svg.fonttype": "none", "svg.hashsalt": "osx", "font.family": "sans-serif", "font.size": 9,
    "text.color": INK, "axes.labelcolor": INK, "axes.edgecolor": INK, "xtick.color": INK,
    "ytick.color": INK, "axes.grid": True, "grid.color": GRID, "grid.linewidth": 0.6,
    "axes.spines.top": False, "axes.spines.right": False, "axes.linewidth": 0.6,
    "axes.titlesize": 9, "axes.titleweight": "bold", "axes.titlelocation": "left",
    "figure.titlesize": 11, "figure.titleweight": "bold", "legend.frameon": False,
    "legend.handletextpad": 0.3, "legend.columnspacing": 1.2, "lines.linewidth": 1.2,
    "lines.markersize": 5, "savefig.transparent": True})


def as_svg(figure):
    """@return a figure as SVG, and closes it."""
    made = io.StringIO()
    figure.savefig(made, format="svg", metadata={"Date": None, "Creator": None},
                   bbox_inches="tight", pad_inches=0.08)
    pyplot.close(figure)
    text = made.getvalue().replace("'DejaVu Sans', ", "")
    # The names of fonts of one machine; a browser has its own.
    return re.sub(r"font: ([^;']*?)(?:'[^']*',? ?)+[^;\"]*sans-serif[^;\"]*", r"font: \1sans-serif", text)

"""Cuts an object out of a photo given as a NumPy array.

cut(image, lasso) gives the mask of the object inside a lasso in one call;
Cutter refines a cut with clicks, paint, scribbles, inversion and undo;
Scissors traces live wires along the photo's edges.
"""

from ._pximagecutter import Cutter, Scissors, cut

__all__ = ["Cutter", "Scissors", "cut"]

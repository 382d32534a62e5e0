from typing import Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

Point = Union[Tuple[float, float], Sequence[float], npt.NDArray[np.floating]]
Points = Union[Sequence[Point], npt.NDArray[np.number]]
Image = npt.NDArray[np.uint8]
Mask = npt.NDArray[np.uint8]

def cut(
    image: Image,
    lasso: Points,
    refine: bool = True,
    matte: bool = False,
    timeout: float = 300.0,
) -> Union[Mask, npt.NDArray[np.float32]]:
    """Cuts the object inside a lasso out of a photo.

    image is HxWx3 (RGB) or HxWx4 (RGBA) uint8; lasso at least 3 (x, y) points
    inside it. Returns an HxW uint8 mask, 255 on the object: the mask
    `pxcut cut` writes for the same photo, lasso and cut mode. matte=True
    returns the soft alpha matte instead, HxW float32 from 0 to 1; a call that takes longer than timeout seconds
    is cancelled with TimeoutError.
    """

class Cutter:
    """One photo being cut step by step; every call returns the new mask."""

    def __init__(self, image: Image, refine: bool = True) -> None:
        """Takes an HxWx3 or HxWx4 uint8 photo; refine picks the refined cut."""
    def lasso(self, points: Points, timeout: float = 300.0) -> Mask:
        """Cuts the object inside the closed polygon through points (at least 3)."""
    def click(self, x: float, y: float, timeout: float = 300.0) -> Mask:
        """Toggles the region under (x, y), which must lie inside the lasso."""
    def paint(self, points: Points, radius: float, object: bool = True, timeout: float = 300.0) -> Mask:
        """Moves every region a round brush through points touches to the object or the background."""
    def scribble(self, points: Points, radius: float, object: bool = True, timeout: float = 300.0) -> Mask:
        """Sets exactly the pixels under a round brush through points."""
    def invert(self, timeout: float = 300.0) -> Mask:
        """Swaps object and background."""
    def undo(self) -> Mask:
        """Takes back the last step; the mask stays when there is none."""
    def redo(self) -> Mask:
        """Does again what undo() took back."""
    @property
    def mask(self) -> Mask:
        """The current mask, HxW uint8, 255 on the object; zeros before the first lasso."""
    @property
    def regions(self) -> npt.NDArray[np.int32]:
        """The last lasso's regions as an HxW int32 label image."""
    @property
    def shape(self) -> Tuple[int, int]:
        """The photo's (height, width)."""

class Scissors:
    """The live wire: paths along the photo's edges between two points."""

    def __init__(self, image: Image) -> None:
        """Takes an HxWx3 or HxWx4 uint8 photo at full resolution."""
    def wire(self, seed: Point, to: Point, timeout: float = 300.0) -> npt.NDArray[np.int32]:
        """The wire from seed to to as an Nx2 int32 array of (x, y), as `pxcut wire` writes it."""

import json
import os

import numpy as np
import pytest

import pximagecutter
from conftest import PHOTOS, run_pxcut

WIRES = [((70, 220), (160, 68)), ((330, 2), (488, 170)), ((250, 399), (68, 290))]


def test_wires_equal_pxcut(coffee, pxcut, tmp_path):
    image, _ = coffee
    arguments = ["wire", os.path.join(PHOTOS, "coffee.png"), "--out", str(tmp_path)]
    for seed, to in WIRES:
        arguments += ["--seed", "%d,%d" % seed, "--to", "%d,%d" % to]
    run_pxcut(pxcut, *arguments)
    expected = json.loads((tmp_path / "wire.json").read_text())["wires"]

    scissors = pximagecutter.Scissors(image)
    for (seed, to), written in zip(WIRES, expected):
        wire = scissors.wire(seed, to)
        assert wire.dtype == np.int32 and wire.shape[1] == 2
        assert tuple(wire[0]) == seed and tuple(wire[-1]) == to
        np.testing.assert_array_equal(wire, np.array(written["points"]))


def test_bad_points_name_the_argument(small_coffee):
    image, _ = small_coffee
    scissors = pximagecutter.Scissors(image)
    with pytest.raises(ValueError, match="seed .* outside the 240x200 image"):
        scissors.wire((-1, 0), (10, 10))
    with pytest.raises(ValueError, match="to .* outside"):
        scissors.wire((0, 0), (10, 200))
    with pytest.raises(ValueError, match="to must be an \\(x, y\\) pair"):
        scissors.wire((0, 0), (1, 2, 3))
    with pytest.raises(TypeError, match="image"):
        pximagecutter.Scissors(image.astype(np.int16))

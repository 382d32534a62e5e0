import os
import subprocess

import numpy as np
import pytest
from PIL import Image

PHOTOS = os.environ.get("PX_PHOTOS_DIR", os.path.join(os.path.dirname(__file__), "../../examples/photos"))


def read_lasso(path):
    points = []
    with open(path) as file:
        for line in file:
            for token in line.split("#")[0].split():
                x, y = token.split(",")
                points.append((float(x), float(y)))
    return points


@pytest.fixture(scope="session")
def coffee():
    """The shipped photo (600x400 RGB, below pxcut's scaling) and its lasso."""
    image = np.asarray(Image.open(os.path.join(PHOTOS, "coffee.png")).convert("RGB"))
    return image, read_lasso(os.path.join(PHOTOS, "coffee.lasso"))


@pytest.fixture(scope="session")
def small_coffee(coffee):
    """A quarter-size crop of the cup with the lasso moved into it: quick cuts."""
    image, lasso = coffee
    crop = np.ascontiguousarray(image[0:200, 60:300])
    return crop, [(12, 100), (60, 30), (120, 10), (200, 20), (235, 120), (200, 190), (100, 195), (20, 170)]


@pytest.fixture(scope="session")
def pxcut():
    path = os.environ.get("PXCUT")
    if not path:
        pytest.skip("pxcut is not built (PX_BUILD_EXAMPLES off)")
    return path


def run_pxcut(pxcut, *arguments):
    subprocess.run([pxcut, *arguments], check=True, capture_output=True,
                   env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))

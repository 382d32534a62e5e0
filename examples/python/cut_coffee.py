#!/usr/bin/env python3
"""Cuts the coffee cup out of the shipped photo from Python.

    PYTHONPATH=build/default/python python3 examples/python/cut_coffee.py [OUT]

Reads examples/photos/coffee.png and the lasso beside it, cuts with the
refined cut, and writes OUT (default cutout.png): the photo with the
background made transparent. After a package install, PYTHONPATH is not needed.
"""
import os
import sys

import numpy as np
from PIL import Image

import pximagecutter

PHOTOS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "photos")


def read_lasso(path):
    """Points "x,y" separated by white space; '#' starts a comment."""
    with open(path) as file:
        tokens = [token for line in file for token in line.split("#")[0].split()]
    return [tuple(float(v) for v in token.split(",")) for token in tokens]


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else "cutout.png"
    photo = np.asarray(Image.open(os.path.join(PHOTOS, "coffee.png")).convert("RGB"))
    lasso = read_lasso(os.path.join(PHOTOS, "coffee.lasso"))

    mask = pximagecutter.cut(photo, lasso)

    Image.fromarray(np.dstack([photo, mask])).save(out)
    print("%s: object %.1f%% of the photo" % (out, 100 * (mask == 255).mean()))


if __name__ == "__main__":
    main()

import os

import numpy as np
import pytest
from PIL import Image

import pximagecutter
from conftest import PHOTOS, run_pxcut


@pytest.mark.parametrize("refine", [True, False], ids=["refined", "plain"])
def test_mask_equals_pxcut(coffee, pxcut, tmp_path, refine):
    image, lasso = coffee
    arguments = ["cut", os.path.join(PHOTOS, "coffee.png"), "--out", str(tmp_path)]
    run_pxcut(pxcut, *arguments, "--refine" if refine else "--plain")
    # pxcut's mask: opaque background, transparent object.
    expected = 255 - np.asarray(Image.open(tmp_path / "mask.png").convert("RGBA"))[:, :, 3]

    mask = pximagecutter.cut(image, lasso, refine=refine)

    assert mask.dtype == np.uint8 and mask.shape == image.shape[:2]
    assert set(np.unique(mask)) == {0, 255}
    assert 0.1 < (mask == 255).mean() < 0.9
    np.testing.assert_array_equal(mask, expected)


def test_inputs_in_any_layout_give_one_mask(small_coffee):
    image, lasso = small_coffee
    reference = pximagecutter.cut(image, lasso)
    rgba = np.dstack([image, np.full(image.shape[:2], 255, np.uint8)])
    # A strided view, a tuple of lists and an integer array are the same photo and lasso.
    np.testing.assert_array_equal(pximagecutter.cut(rgba, np.array(lasso, dtype=np.int64)), reference)
    flipped = np.ascontiguousarray(image[:, ::-1])[:, ::-1]
    np.testing.assert_array_equal(pximagecutter.cut(flipped, tuple(list(p) for p in lasso)), reference)


BAD_CUTS = [
    # (image, lasso, exception, words the message must contain)
    ("list", "lasso", TypeError, ["image", "numpy array"]),
    ("float", "lasso", TypeError, ["image", "uint8"]),
    ("gray", "lasso", ValueError, ["image", "HxWx3"]),
    ("five", "lasso", ValueError, ["image", "HxWx3"]),
    ("empty", "lasso", ValueError, ["image"]),
    ("photo", "two", ValueError, ["lasso", "at least 3"]),
    ("photo", "outside", ValueError, ["lasso point 1", "outside", "240x200"]),
    ("photo", "negative", ValueError, ["lasso point 0", "outside"]),
    ("photo", "nan", ValueError, ["lasso point 2", "finite"]),
    ("photo", "triples", ValueError, ["lasso", "Nx2"]),
    ("photo", "text", TypeError, ["lasso"]),
    ("photo", "ragged", TypeError, ["lasso"]),
    ("photo", None, TypeError, ["lasso"]),
]


@pytest.mark.parametrize("image_kind,lasso_kind,exception,words", BAD_CUTS)
def test_bad_input_raises_naming_the_argument(small_coffee, image_kind, lasso_kind, exception, words):
    photo, lasso = small_coffee
    images = {
        "photo": photo,
        "list": photo.tolist(),
        "float": photo.astype(np.float32),
        "gray": photo[:, :, 0],
        "five": np.zeros((20, 20, 5), np.uint8),
        "empty": np.zeros((0, 10, 3), np.uint8),
    }
    lassos = {
        "lasso": lasso,
        "two": lasso[:2],
        "outside": [lasso[0], (240, 50), lasso[2]],
        "negative": [(-1, 5), lasso[1], lasso[2]],
        "nan": [lasso[0], lasso[1], (float("nan"), 3)],
        "triples": [(1, 2, 3)] * 4,
        "text": "12,100 60,30 120,10",
        "ragged": [(1, 2), (3,), (4, 5)],
        None: None,
    }
    with pytest.raises(exception) as error:
        pximagecutter.cut(images[image_kind], lassos[lasso_kind])
    for word in words:
        assert word in str(error.value)


def test_matte_is_soft_only_along_the_edge(small_coffee):
    image, lasso = small_coffee
    mask = pximagecutter.cut(image, lasso)
    alpha = pximagecutter.cut(image, lasso, matte=True)
    assert alpha.dtype == np.float32 and alpha.shape == mask.shape
    assert alpha.min() >= 0.0 and alpha.max() <= 1.0
    assert ((alpha > 0.0) & (alpha < 1.0)).any()

    # Away from the mask's outline the matte is the mask.
    def eroded(inside, radius):
        result = inside.copy()
        for dy in range(-radius, radius + 1):
            for dx in range(-radius, radius + 1):
                result &= np.roll(np.roll(inside, dy, 0), dx, 1)
        return result

    assert (alpha[eroded(mask == 255, 8)] == 1.0).all()
    assert (alpha[eroded(mask == 0, 8)] == 0.0).all()


def test_timeout_cancels_and_the_module_goes_on(coffee):
    image, lasso = coffee
    with pytest.raises(TimeoutError):
        pximagecutter.cut(image, lasso, timeout=0.001)
    with pytest.raises(ValueError, match="timeout"):
        pximagecutter.cut(image, lasso, timeout=0)
    assert (pximagecutter.cut(image, lasso, refine=False) == 255).any()

import threading

import numpy as np
import pytest

import pximagecutter


def test_strokes_change_the_mask_and_undo_takes_them_back(small_coffee):
    image, lasso = small_coffee
    # The plain cut: there a click toggles one region and nothing else (the
    # refined cut solves again with every mark).
    cutter = pximagecutter.Cutter(image, refine=False)
    assert not cutter.mask.any() and cutter.shape == image.shape[:2]

    cut = cutter.lasso(lasso)
    regions = cutter.regions
    assert regions.dtype == np.int32 and regions.shape == image.shape[:2]
    np.testing.assert_array_equal(cutter.mask, cut)

    # A click toggles exactly the region under it.
    x, y = 120, 100
    clicked = cutter.click(x, y)
    changed = clicked != cut
    assert changed[y, x] and changed.any()
    assert (regions[changed] == regions[y, x]).all()

    # Scribbled object pixels are object, whatever the regions say.
    scribbled = cutter.scribble([(30, 40), (60, 40)], radius=4, object=True)
    assert (scribbled[37:43, 34:57] == 255).all()

    # Painting background takes whole regions out.
    painted = cutter.paint([(120, 100)], radius=3, object=False)
    assert painted[100, 120] == 0 and (painted <= scribbled).all()

    inverted = cutter.invert()
    np.testing.assert_array_equal(inverted, 255 - painted)

    history = [inverted, painted, scribbled, clicked, cut]
    for before in history[1:]:
        np.testing.assert_array_equal(cutter.undo(), before)
    # Before the lasso there was no mask; nothing further to undo.
    assert not cutter.undo().any()
    assert not cutter.undo().any()
    for after in reversed(history):
        np.testing.assert_array_equal(cutter.redo(), after)
    np.testing.assert_array_equal(cutter.mask, inverted)


def test_refined_cutter_undoes_its_strokes(small_coffee):
    image, lasso = small_coffee
    cutter = pximagecutter.Cutter(image)
    cut = cutter.lasso(lasso)
    painted = cutter.paint([(120, 100), (140, 100)], radius=5, object=False)
    assert painted[100, 130] == 0 and (painted != cut).any()
    np.testing.assert_array_equal(cutter.undo(), cut)
    np.testing.assert_array_equal(cutter.redo(), painted)


def test_refinement_needs_a_cut_and_points_inside(small_coffee):
    image, lasso = small_coffee
    cutter = pximagecutter.Cutter(image)
    for call in (lambda: cutter.click(5, 5), lambda: cutter.paint([(5, 5)], 3), cutter.invert):
        with pytest.raises(ValueError, match="lasso\\(\\) first"):
            call()
    cutter.lasso(lasso)
    with pytest.raises(ValueError, match="click .* outside the lasso"):
        cutter.click(1, 1)
    with pytest.raises(ValueError, match="click .* outside the 240x200 image"):
        cutter.click(240, 10)
    with pytest.raises(ValueError, match="radius"):
        cutter.paint([(50, 50)], radius=0)
    with pytest.raises(ValueError, match="scribble point 1 .* outside"):
        cutter.scribble([(50, 50), (50, 500)], radius=2)
    with pytest.raises(ValueError, match="paint needs at least 1 point"):
        cutter.paint([], radius=2)


def test_two_threads_cut_at_once(coffee, small_coffee):
    jobs = [coffee, small_coffee, coffee, small_coffee]
    expected = [pximagecutter.cut(image, lasso) for image, lasso in jobs[:2]] * 2
    results = [None] * len(jobs)

    def work(index):
        image, lasso = jobs[index]
        results[index] = pximagecutter.cut(image, lasso)

    threads = [threading.Thread(target=work, args=(i,)) for i in range(len(jobs))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for result, mask in zip(results, expected):
        np.testing.assert_array_equal(result, mask)


def resident_bytes():
    with open("/proc/self/statm") as statm:
        return int(statm.read().split()[1]) * 4096


def test_memory_stays_flat_over_200_cuts(small_coffee):
    image, lasso = small_coffee
    image = np.ascontiguousarray(image[::2, ::2])
    lasso = [(x / 2, y / 2) for x, y in lasso]
    for _ in range(20):
        pximagecutter.cut(image, lasso, refine=False)
    before = resident_bytes()
    for _ in range(200):
        pximagecutter.cut(image, lasso, refine=False)
    # A leaked photo, mask or worker per cut would add well over 10 MB here.
    assert resident_bytes() - before < 10 << 20

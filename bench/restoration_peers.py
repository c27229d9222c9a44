"""What scikit-image and SciPy take to restore images and to transform them, for bench/compare.py.

A row's time is that of twenty iterations, our preparation included.
"""
import time

import numpy as np

try:
    import scipy.fft
except ImportError:
    scipy = None
try:
    import skimage.restoration
except ImportError:
    skimage = None

# Iterations of our benchmarks, and those that scikit-image is timed for.
ITERATIONS, ROUNDS = 20, 4


def picture(width, height):
    return np.random.default_rng(4).random((height, width), dtype=np.float32) * 100 + 500


def psf(sigma=2.0, size=64):
    at = np.arange(size) - size * 0.5
    g = np.exp(-(at[:, None] ** 2 + at[None] ** 2) / (2 * sigma * sigma)).astype(np.float32)
    return g / g.sum()


def lucy(width, height):
    def make():
        if skimage is None:
            return None
        image, kernel = picture(width, height), psf()

        def body():
            begun = time.perf_counter()
            skimage.restoration.richardson_lucy(image, kernel, ROUNDS, clip=False)
            return (time.perf_counter() - begun) * ITERATIONS / ROUNDS
        return body
    return make


def transform(width, height, workers):
    """There and back, real, single precision."""
    def make():
        if scipy is None:
            return None
        image = picture(width, height)
        return lambda: scipy.fft.irfft2(scipy.fft.rfft2(image, workers=workers), image.shape, workers=workers)
    return make


def row(width, height, mode, what):
    name = "Lucy/width:%d/height:%d/mode:%d" % (width, height, mode)
    return ("restoration_bench", name, "20 %s Lucy steps, %d x %d" % (what, width, height),
            "scikit-image, 20 plain ones", lucy(width, height))


ROWS = [row(1024, 1024, 0, "plain"), row(1024, 1024, 2, "turbo"), row(2000, 1500, 0, "plain"), row(2000, 1500, 2, "turbo"),
        ("restoration_bench", "MaximumEntropy/width:1024/height:1024", "20 of maximum entropy, 1024 x 1024", "", lambda: None)]

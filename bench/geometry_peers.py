"""What OpenCV and SciPy take to turn, resample, combine and match images, for bench/compare.py."""
import time

import numpy as np

import filter_peers as fp

cv2 = fp.cv2
try:
    import scipy.ndimage
    import scipy.signal
except ImportError:
    scipy = None

WIDTH, HEIGHT, PLANES = fp.WIDTH, fp.HEIGHT, fp.PLANES
# SciPy goes through one piece of this size, and the time is taken times the number of pieces.
PIECE_WIDTH, PIECE_HEIGHT = 1500, 1000
PIECES = PLANES * (WIDTH // PIECE_WIDTH) * (HEIGHT // PIECE_HEIGHT)


def piecewise(work):
    """`work(piece)` of SciPy, scaled to the whole image; None without it."""
    def make():
        if scipy is None:
            return None
        piece = np.random.default_rng(1).random((PIECE_HEIGHT, PIECE_WIDTH), dtype=np.float32)

        def body():
            begun = time.perf_counter()
            work(piece)
            return (time.perf_counter() - begun) * PIECES
        return body
    return make


def scipy_turn(order):
    return piecewise(lambda p: scipy.ndimage.rotate(p, 5, reshape=False, order=order, output=np.float32))


def scipy_zoom(scale, order):
    return piecewise(lambda p: scipy.ndimage.zoom(p, scale, order=order, output=np.float32))


def opencv_resize(scale, flag):
    def make():
        if cv2 is None:
            return None
        source, _ = fp.frames()
        size = (int(WIDTH * scale), int(HEIGHT * scale))
        target = [np.empty((size[1], size[0]), np.float32) for _ in source]

        def body():
            for s, t in zip(source, target):
                cv2.resize(s, size, dst=t, interpolation=flag)
        return body
    return make


def opencv_average(flag, angle=0.0):
    """The mean of one image and another that is shifted, or turned about its middle."""
    def make():
        if cv2 is None:
            return None
        source, target = fp.frames()
        other = [s[::-1].copy() for s in source]
        matrix = cv2.getRotationMatrix2D(((WIDTH - 1) / 2, (HEIGHT - 1) / 2), angle, 1)
        matrix[:, 2] += (0.3, 0.7)

        def body():
            for a, b, t in zip(source, other, target):
                cv2.warpAffine(b, matrix, (WIDTH, HEIGHT), dst=t, flags=flag)
                cv2.addWeighted(a, 0.5, t, 0.5, 0, dst=t)
        return body
    return make


def scipy_average(order):
    def work(piece):
        moved = scipy.ndimage.shift(piece, (0.7, 0.3), order=order, output=np.float32)
        moved += piece
        moved *= np.float32(0.5)
    return piecewise(work)


def opencv_bin():
    """2 x 2 means; ours are sums."""
    if cv2 is None:
        return None
    source, _ = fp.frames()
    target = [np.empty((HEIGHT // 2, WIDTH // 2), np.float32) for _ in source]

    def body():
        for s, t in zip(source, target):
            cv2.resize(s, (WIDTH // 2, HEIGHT // 2), dst=t, interpolation=cv2.INTER_AREA)
    return body


def opencv_turn90():
    return None if cv2 is None else _in_planes(lambda s, t: cv2.rotate(s, cv2.ROTATE_90_CLOCKWISE, dst=t), True)


def opencv_flip(code):
    return lambda: None if cv2 is None else _in_planes(lambda s, t: cv2.flip(s, code, dst=t), False)


def _in_planes(work, turned):
    source, target = fp.frames()
    if turned:
        target = [np.empty((WIDTH, HEIGHT), np.float32) for _ in source]

    def body():
        for s, t in zip(source, target):
            work(s, t)
    return body


# A template of 256 x 256 tried at 41 x 41 whole positions, as far as the search of ours reaches.
def _match_inputs():
    rng = np.random.default_rng(4)
    window = rng.random((256 + 40, 256 + 40), dtype=np.float32)
    return window, window[17:17 + 256, 23:23 + 256].copy()


def opencv_match():
    if cv2 is None:
        return None
    window, template = _match_inputs()
    return lambda: cv2.minMaxLoc(cv2.matchTemplate(window, template, cv2.TM_SQDIFF))


def scipy_match():
    """Squared differences by correlation through Fourier transforms."""
    if scipy is None:
        return None
    window, template = _match_inputs()

    def body():
        cross = scipy.signal.correlate(window, template, mode="valid", method="fft")
        square = scipy.signal.correlate(window * window, np.ones_like(template), mode="valid", method="fft")
        return int(np.argmin(square - 2 * cross))
    return lambda: (body(), None)[1]


CV = (lambda name: getattr(cv2, name, 0))
ROWS = [
    ("geometry_bench", "Rotate/0", "picture turned by 5 degrees, bilinear", "SciPy rotate, order 1, in pieces", scipy_turn(1)),
    ("geometry_bench", "Rotate/1", "picture turned, bicubic", "SciPy rotate, order 3, in pieces", scipy_turn(3)),
    ("geometry_bench", "Rotate90", "quarter turn", "OpenCV rotate", opencv_turn90),
    ("geometry_bench", "Flip/0", "upside down", "OpenCV flip", opencv_flip(0)),
    ("geometry_bench", "Flip/1", "left to right", "OpenCV flip", opencv_flip(1)),
    ("geometry_bench", "Binning/2", "2 x 2 binning", "OpenCV resize INTER_AREA", opencv_bin),
    ("geometry_bench", "ResampleBilinear/50", "to half size, bilinear", "OpenCV resize", opencv_resize(0.5, CV("INTER_LINEAR"))),
    ("geometry_bench", "ResampleBilinear/150", "to 1.5 times, bilinear", "OpenCV resize", opencv_resize(1.5, CV("INTER_LINEAR"))),
    ("geometry_bench", "ResampleBicubic/50", "to half size, bicubic", "OpenCV resize", opencv_resize(0.5, CV("INTER_CUBIC"))),
    ("geometry_bench", "ResampleBicubic/150", "to 1.5 times, bicubic", "OpenCV resize", opencv_resize(1.5, CV("INTER_CUBIC"))),
    ("geometry_bench", "ResampleBicubic/150", "to 1.5 times, bicubic", "SciPy zoom, order 3, in pieces", scipy_zoom(1.5, 3)),
    ("geometry_bench", "ResampleLanczos3/50", "to half size, Lanczos3", "OpenCV resize Lanczos4",
     opencv_resize(0.5, CV("INTER_LANCZOS4"))),
    ("geometry_bench", "ResampleLanczos3/150", "to 1.5 times, Lanczos3", "OpenCV resize Lanczos4",
     opencv_resize(1.5, CV("INTER_LANCZOS4"))),
    ("composite_bench", "Average/WholePixels", "mean of two, whole shift", "", lambda: None),
    ("composite_bench", "Average/Bilinear", "mean of two, shift (0.3, 0.7)", "OpenCV warpAffine, addWeighted",
     opencv_average(CV("INTER_LINEAR"))),
    ("composite_bench", "Average/Bilinear", "mean of two, shift (0.3, 0.7)", "SciPy shift, order 1, in pieces", scipy_average(1)),
    ("composite_bench", "Average/Lanczos3", "the same by Lanczos3", "OpenCV warpAffine Lanczos4",
     opencv_average(CV("INTER_LANCZOS4"))),
    ("composite_bench", "Average/Turned", "mean of two, turned, bilinear", "OpenCV warpAffine, addWeighted",
     opencv_average(CV("INTER_LINEAR"), 5.0)),
    ("composite_bench", "Minimum/Bilinear", "minimum beside saturation, 6 Mpx", "", lambda: None),
    ("matching_bench", "Matching/subPixel:0", "256 x 256 template, 41 x 41 places", "OpenCV matchTemplate", opencv_match),
    ("matching_bench", "Matching/subPixel:0", "256 x 256 template, 41 x 41 places", "SciPy correlate, fft", scipy_match),
    ("matching_bench", "Matching/subPixel:1", "the same to a tenth of a pixel", "", lambda: None),
    ("matching_bench", "Mosaic/degrees:0", "frame mosaic of 2 x 24 Mpx", "", lambda: None),
    ("matching_bench", "RotationalGradient", "rotational gradient of 6 Mpx", "", lambda: None),
    ("measure_bench", "EvaluateFocus", "focus score", "", lambda: None),
]

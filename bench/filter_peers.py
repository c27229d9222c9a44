"""What OpenCV, SciPy and PyWavelets take for the same filters, for bench/compare.py."""
import numpy as np

try:
    import cv2
except ImportError:
    cv2 = None
try:
    import scipy.ndimage
except ImportError:
    scipy = None
try:
    import pywt
except ImportError:
    pywt = None
try:
    import skimage.exposure
except ImportError:
    skimage = None

WIDTH, HEIGHT, PLANES = 6000, 4000, 3


def frames():
    rng = np.random.default_rng(1)
    source = [rng.random((HEIGHT, WIDTH), dtype=np.float32) for _ in range(PLANES)]
    return source, [np.empty_like(p) for p in source]


def disc(radius):
    r = max(1, int(radius))
    y, x = np.mgrid[-r:r + 1, -r:r + 1]
    return (x * x + y * y <= radius * radius).astype(np.uint8)


def each_plane(work):
    """`work(source, target)` for every plane; None without OpenCV."""
    if cv2 is None:
        return None
    source, target = frames()

    def body():
        for s, t in zip(source, target):
            work(s, t)
    return body


def median(size):
    return lambda: each_plane(lambda s, t: cv2.medianBlur(s, size, dst=t))


def convolution(kernel):
    return lambda: each_plane(lambda s, t: cv2.filter2D(s, -1, kernel.astype(np.float32), dst=t))


def box(radius):
    size = 2 * radius + 1
    row = np.full(size, 1 / size, np.float32)
    return lambda: each_plane(lambda s, t: cv2.sepFilter2D(s, -1, row, row, dst=t))


def least(radius):
    return lambda: each_plane(lambda s, t: cv2.erode(s, disc(radius), dst=t))


def taps(sigma):
    size = 2 * int(2.8 * sigma + 1) + 1
    return size, size


def gaussian(sigma):
    return lambda: each_plane(lambda s, t: cv2.GaussianBlur(s, taps(sigma), sigma, dst=t))


def unsharp(sigma):
    def work(s, t):
        cv2.GaussianBlur(s, taps(sigma), sigma, dst=t)
        cv2.addWeighted(s, 2.0, t, -1.0, 0.0, dst=t)
    return lambda: each_plane(work)


def divide_by_blur(sigma):
    def work(s, t):
        cv2.GaussianBlur(s, taps(sigma), sigma, dst=t)
        cv2.add(t, 0.1, dst=t)
        cv2.divide(s, t, dst=t, scale=0.5)
    return lambda: each_plane(work)


def scipy_median(radius):
    """Per pixel on 500 x 500 of one plane, scaled to the whole frame: the frame itself takes minutes."""
    def make():
        if scipy is None:
            return None
        import time
        part = np.random.default_rng(1).random((500, 500), dtype=np.float32)
        footprint = disc(radius)

        def body():
            begun = time.perf_counter()
            scipy.ndimage.median_filter(part, footprint=footprint)
            return (time.perf_counter() - begun) * WIDTH * HEIGHT * PLANES / part.size
        return body
    return make


def wavelet(inverse):
    def make():
        if pywt is None:
            return None
        image = np.random.default_rng(1).random((4096, 4096), dtype=np.float32)
        if not inverse:
            return lambda: pywt.wavedec2(image, "db4", mode="periodization", level=4)
        bands = pywt.wavedec2(image, "db4", mode="periodization", level=4)
        return lambda: pywt.waverec2(bands, "db4", mode="periodization")
    return make


def equalize(sky):
    """One plane; the peer's 256 bins with interpolation stand beside our rank of every pixel."""
    def make():
        if skimage is None:
            return None
        rng = np.random.default_rng(1)
        image = rng.random((HEIGHT, WIDTH), dtype=np.float32)
        if sky:
            image = np.floor(image * 127) + np.floor(rng.random((HEIGHT, WIDTH), dtype=np.float32) * 254) + 1000
            image[rng.random((HEIGHT, WIDTH), dtype=np.float32) < 1 / 128] *= 30
        return lambda: skimage.exposure.equalize_hist(image)
    return make


SHARPEN = np.full((3, 3), -1.0)
SHARPEN[1, 1] = 9.0

# Our own benchmark that an operation rests on, as its peer.
OWN = "own"

# benchmark program, filter, what it is, the peer's name and how to make it
ROWS = [
    ("pattern_bench", "Median/0", "median, plus sign", "OpenCV medianBlur 3 x 3", median(3)),
    ("pattern_bench", "Median/1", "median 3 x 3", "OpenCV medianBlur 3 x 3", median(3)),
    ("pattern_bench", "Median/2", "median 5 x 5 without corners", "OpenCV medianBlur 5 x 5", median(5)),
    ("pattern_bench", "Unsharp/1", "unsharp mask of a 3 x 3 mean", "OpenCV filter2D 3 x 3", convolution(SHARPEN)),
    ("pattern_bench", "Laplacian/1", "Laplacian 3 x 3", "OpenCV filter2D 3 x 3", convolution(SHARPEN)),
    ("rank_bench", "DiscMedian/50", "median, disc of radius 5", "SciPy median_filter, scaled", scipy_median(5)),
    ("rank_bench", "DiscMedian/20", "median, disc of radius 2", "SciPy median_filter, scaled", scipy_median(2)),
    ("rank_bench", "Minimum", "minimum, disc of radius 3", "OpenCV erode", least(3)),
    ("rank_bench", "NoiseCut", "hot pixels, radius 1.5", "", lambda: None),
    ("rank_bench", "StarSharp", "star sharpening, radius 2", "", lambda: None),
    ("sharpen_bench", "UnSharpMask/2", "unsharp mask, sigma 2", OWN, "Gaussian/2"),
    ("sharpen_bench", "UnSharpMask/10", "unsharp mask, sigma 10", OWN, "Gaussian/10"),
    ("sharpen_bench", "UnSharpMask/2", "unsharp mask, sigma 2", "OpenCV blur and addWeighted", unsharp(2)),
    ("sharpen_bench", "SharpFilter/1", "sharpening, radius 1", "OpenCV filter2D 3 x 3", convolution(SHARPEN)),
    ("sharpen_bench", "SharpEdgeFilter/1", "sharpening of edges, radius 1", "", lambda: None),
    ("sharpen_bench", "SubBandUnSharpMask/1", "six unsharp masks, sigma 1 to 6", "", lambda: None),
    ("sharpen_bench", "MeanDisc/5", "mean, disc of radius 5", "OpenCV filter2D", convolution(disc(5) / 81)),
    ("sharpen_bench", "MeanBox/5", "mean, box 11 x 11", "OpenCV sepFilter2D", box(5)),
    ("sharpen_bench", "MeanWithoutEdge/3", "mean without edges, radius 3", "", lambda: None),
    ("misc_bench", "CustomKernel", "custom kernel 5 x 5", "OpenCV filter2D", convolution(np.arange(25).reshape(5, 5))),
    ("misc_bench", "GuideError", "guiding error, length 7", "OpenCV filter2D 15 x 15", convolution(np.eye(15))),
    ("misc_bench", "BackgroundSmooth", "background smoothing, sigma 5", "OpenCV GaussianBlur", gaussian(5)),
    ("misc_bench", "CfaNoiseCut/1", "hot pixels of a Bayer frame", "", lambda: None),
    ("misc_bench", "FalseColour", "false colour", "", lambda: None),
    ("misc_bench", "Contour", "contours, 16 levels", "", lambda: None),
    ("development_bench", "GammaFirst/1/0", "digital development, sigma 10", "OpenCV blur and divide", divide_by_blur(10)),
    ("development_bench", "GammaFirst/2/1", "the same, gamma 2, common mask", "", lambda: None),
    ("tone_bench", "Equalize/0", "equalisation of one plane, noise", "scikit-image, 256 bins", equalize(False)),
    ("tone_bench", "Equalize/1", "equalisation of one plane, sky", "scikit-image, 256 bins", equalize(True)),
    ("wavelet_bench", "Decomposition/4", "4 wavelet levels of 4096 x 4096", "PyWavelets wavedec2", wavelet(False)),
    ("wavelet_bench", "Composition/4", "and back", "PyWavelets waverec2", wavelet(True)),
    ("star_bench", "StarEnhance2/5", "star enhancement, sigma 2", "", lambda: None),
    ("star_bench", "StaryMask", "star mask", "", lambda: None),
    ("star_bench", "NebularSmoother/5", "nebula smoothing, sigma 2", "", lambda: None),
]

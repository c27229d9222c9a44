#!/usr/bin/env python3
"""Restorations of a simulated field whose truth is known, beside scikit-image's.

    bench/restoration.py QMR [--size 512] [--sigma 2] [--iterations 10,30,100] [--pictures FOLDER]

The field has 150 stars (1.9 pixels wide), a nebula with thin filaments and a sky of 200 electrons; it is blurred by a
Gaussian and gets the noise of the photons and of a read-out of 5 electrons. The table shows the root mean square of what
differs from the field before the blur, the chi-square of a datum (the blurred result against the noisy picture) and the
flux above the sky as a part of the true one; seconds are those of the whole program, reading and writing included.
"""
import argparse
import os
import subprocess
import tempfile
import time

import numpy as np

try:
    import skimage.restoration
except ImportError:
    skimage = None

SKY, READ_NOISE = 200.0, 5.0


def write_fits(path, data):
    cards = ["SIMPLE  =                    T", "BITPIX  =                  -32", "NAXIS   =                    2",
             "NAXIS1  = %20d" % data.shape[1], "NAXIS2  = %20d" % data.shape[0], "EGAIN   =                  1.0", "END"]
    head = "".join(c.ljust(80) for c in cards)
    body = np.ascontiguousarray(data, ">f4").tobytes()
    with open(path, "wb") as f:
        f.write(head.ljust(-(-len(head) // 2880) * 2880).encode())
        f.write(body.ljust(-(-len(body) // 2880) * 2880, b"\0"))


def read_fits(path):
    with open(path, "rb") as f:
        raw = f.read()
    values, at = {}, 0
    while True:
        card = raw[at:at + 80].decode("latin-1")
        at += 80
        if card.startswith("END "):
            break
        if card[8:10] == "= ":
            values[card[:8].strip()] = card[10:].split("/")[0].strip()
    at = -(-at // 2880) * 2880
    shape = int(values["NAXIS2"]), int(values["NAXIS1"])
    assert int(values["BITPIX"]) == -32
    return np.frombuffer(raw, ">f4", shape[0] * shape[1], at).reshape(shape).astype(float)


def gaussian(shape, sigma):
    """The transform of a Gaussian about the first pixel that wraps around."""
    y, x = (np.minimum(np.arange(n), n - np.arange(n)) for n in shape)
    g = np.exp(-(y[:, None] ** 2 + x[None] ** 2) / (2 * sigma ** 2))
    return np.fft.rfft2(g / g.sum())


def blur(image, sigma):
    """Blurred, with mirrored borders."""
    pad = int(6 * sigma) + 1
    wide = np.pad(image, pad, mode="reflect")
    return np.fft.irfft2(np.fft.rfft2(wide) * gaussian(wide.shape, sigma), wide.shape)[pad:-pad, pad:-pad]


def field(size, seed=7):
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:size, 0:size].astype(float)
    scene = np.full((size, size), SKY)
    u, v = (x - 0.45 * size) / size, (y - 0.55 * size) / size
    radius = np.hypot(u, v)
    shell = np.exp(-((radius - 0.2) / 0.035) ** 2) * 500 + np.exp(-(radius / 0.25) ** 2) * 250
    threads = 1 + 0.8 * np.sin(90 * u + 14 * np.sin(9 * v)) * np.sin(70 * v + 11 * np.cos(8 * u))
    scene += shell * threads
    for _ in range(150):
        cx, cy = rng.uniform(8, size - 9, 2)
        flux, s = 10 ** rng.uniform(3, 5.3), 0.8
        x0, y0 = int(cx) - 8, int(cy) - 8
        box = (slice(max(y0, 0), y0 + 18), slice(max(x0, 0), x0 + 18))
        scene[box] += flux / (2 * np.pi * s * s) * np.exp(-((x[box] - cx) ** 2 + (y[box] - cy) ** 2) / (2 * s * s))
    return scene


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("qmr")
    parser.add_argument("--size", type=int, default=512)
    parser.add_argument("--sigma", type=float, default=2.0)
    parser.add_argument("--iterations", default="10,30,100")
    parser.add_argument("--pictures", help="folder for FITS files of the field and the restorations")
    a = parser.parse_args()
    truth = field(a.size)
    rng = np.random.default_rng(8)
    blurred = blur(truth, a.sigma)
    picture = (rng.poisson(blurred) + rng.normal(0, READ_NOISE, blurred.shape)).astype(np.float32).astype(float)
    folder = a.pictures or tempfile.mkdtemp()
    os.makedirs(folder, exist_ok=True)
    write_fits(folder + "/truth.fit", truth)
    write_fits(folder + "/picture.fit", picture)
    # Without the rim, where a method's idea of the world outside decides.
    rim = int(6 * a.sigma)
    inner = (slice(rim, -rim), slice(rim, -rim))
    noise = np.std(picture - blurred)

    def show(name, image, seconds):
        model = blur(image, a.sigma)
        chi = np.mean((model - picture)[inner] ** 2 / (np.maximum(blurred[inner], 0) + READ_NOISE ** 2))
        rms = np.sqrt(np.mean((image - truth)[inner] ** 2))
        flux = (image[inner] - SKY).sum() / (truth[inner] - SKY).sum()
        took = "%7.2f" % seconds if seconds is not None else "      -"
        print("%-34s %8.1f %10.3f %8.4f %s" % (name, rms, chi, flux, took), flush=True)

    print("%-34s %8s %10s %8s %7s" % ("method, iterations", "rms e-", "chi-square", "flux", "seconds"))
    show("the picture", picture, None)

    def ours(name, arguments):
        out = "%s/%s.fit" % (folder, name.replace(" ", "_"))
        begun = time.perf_counter()
        subprocess.run([a.qmr, "restore", *arguments, "--sigma", str(a.sigma), "--quiet", "--force",
                        folder + "/picture.fit", out], check=True)
        show(name, read_fits(out), time.perf_counter() - begun)

    steps = [int(k) for k in a.iterations.split(",")]
    # Nothing is hidden below the sky: 0 electrons are no light.
    photons = ["--pedestal", "0", "--gain", "1", "--read-noise", str(READ_NOISE)]
    for k in steps:
        ours("lucy %d" % k, ["lucy", "--settle", "0", "--iterations", str(k), *photons])
    ours("lucy to chi-square 1", ["lucy", "--settle", "0", "--iterations", "300", "--chi-square", "1", *photons])
    for k in steps:
        ours("mem %d" % k, ["mem", "--iterations", str(k), "--pedestal", "0", "--noise", "%.3f" % noise])
    # The best of these, as of scikit-image's below.
    for strength in ("0.0001", "0.001", "0.01", "0.1"):
        ours("wiener, strength " + strength, ["wiener", "--strength", strength])

    if skimage:
        half = int(5 * a.sigma)
        y, x = np.mgrid[-half:half + 1, -half:half + 1]
        psf = np.exp(-(x * x + y * y) / (2 * a.sigma ** 2))
        psf /= psf.sum()
        for k in steps:
            begun = time.perf_counter()
            image = skimage.restoration.richardson_lucy(picture, psf, k, clip=False)
            show("scikit-image richardson_lucy %d" % k, image, time.perf_counter() - begun)
        # Its balance has no unit; the best of these is shown.
        best = None
        for balance in (1e-3, 1e-2, 3e-2, 1e-1, 0.3, 1):
            begun = time.perf_counter()
            image = skimage.restoration.wiener(picture, psf, balance, clip=False)
            took = time.perf_counter() - begun
            rms = np.sqrt(np.mean((image - truth)[inner] ** 2))
            if best is None or rms < best[0]:
                best = (rms, balance, image, took)
        show("scikit-image wiener, balance %g" % best[1], best[2], best[3])


if __name__ == "__main__":
    main()

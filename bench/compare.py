#!/usr/bin/env python3
"""Our benchmarks beside the peers that a user could pick instead, in one run on one machine.

    bench/compare.py BUILD-FOLDER [--rounds 5] [--only WORD]

For each row our benchmark and its peer take turns, `rounds` times; the table shows the median of each and their ratio.
Peers are Debian's packages (OpenCV, SciPy, scikit-image, PyWavelets); a peer that is not installed leaves its cell empty. Threads:
OMP_NUM_THREADS, by default all processors.
"""
import argparse
import atexit
import json
import os
import shutil
import statistics
import subprocess
import tempfile
import time

os.environ.setdefault("OMP_NUM_THREADS", str(os.cpu_count()))
THREADS = int(os.environ["OMP_NUM_THREADS"])

import numpy as np  # noqa: E402  (the thread count must be set before)

import colour_peers as cp  # noqa: E402
import filter_peers as fp  # noqa: E402
import geometry_peers as gp  # noqa: E402
import restoration_peers as rp  # noqa: E402

cv2 = fp.cv2
if cv2:
    cv2.setNumThreads(THREADS)
try:
    import scipy.fft
except ImportError:
    scipy = None
try:
    import skimage.registration
except ImportError:
    skimage = None

WIDTH, HEIGHT = fp.WIDTH, fp.HEIGHT


def timed(body):
    """Milliseconds of a call; a body that times itself gives its seconds."""
    begun = time.perf_counter()
    own = body()
    return (own if isinstance(own, float) else time.perf_counter() - begun) * 1e3


def opencv_blur(sigma):
    if cv2 is None:
        return None
    source, target = fp.frames()
    # As many taps as ours: radius trunc(2.8 sigma + 1).
    size = 2 * int(2.8 * sigma + 1) + 1

    def body():
        for s, t in zip(source, target):
            cv2.GaussianBlur(s, (size, size), sigma, dst=t)
    return body


def opencv_warp(flag, turned):
    if cv2 is None:
        return None
    source, target = fp.frames()
    if turned:
        matrix = cv2.getRotationMatrix2D(((WIDTH - 1) / 2, (HEIGHT - 1) / 2), 5, 1)
    else:
        matrix = np.array([[1, 0, 0.3], [0, 1, 0.7]], float)

    def body():
        for s, t in zip(source, target):
            cv2.warpAffine(s, matrix, (WIDTH, HEIGHT), dst=t, flags=flag)
    return body


def scipy_fft(size):
    if scipy is None:
        return None
    rng = np.random.default_rng(2)
    data = (rng.random((size, size)) + 1j * rng.random((size, size))).astype(np.complex64)
    return lambda: scipy.fft.fft2(data, workers=THREADS)


def skimage_shift(size):
    if skimage is None:
        return None
    rng = np.random.default_rng(3)
    a = rng.random((size, size), dtype=np.float32)
    b = np.roll(a, (3, -2), (0, 1))
    return lambda: skimage.registration.phase_cross_correlation(a, b)


def numpy_copy():
    source, target = fp.frames()

    def body():
        for s, t in zip(source, target):
            np.copyto(t, s)
    return body


def siril_develop(folder):
    """Siril's default development (RCD) of a mosaic of 6000 x 4000, file to file, less the time of reading and writing."""
    qmr = os.path.join(folder, "bin", "qmr")
    if shutil.which("siril-cli") is None or not os.path.exists(qmr):
        return None
    work = tempfile.mkdtemp()
    atexit.register(shutil.rmtree, work, True)
    subprocess.run([qmr, "simulate", "--quiet", "--width", str(WIDTH), "--height", str(HEIGHT), "--lights", "1", "--darks", "0",
                    "--flats", "0", "--biases", "0", work + "/night"], check=True)
    os.makedirs(work + "/in")
    os.rename(work + "/night/lights/light_00001.fit", work + "/in/a.fit")

    def script(lines):
        name = work + "/job.ssf"
        with open(name, "w") as f:
            f.write("\n".join(["requires 1.0.0", "setcpu %d" % THREADS, "cd %s/in" % work] + lines + ["close"]) + "\n")
        begun = time.perf_counter()
        subprocess.run(["siril-cli", "-d", work, "-s", name], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return time.perf_counter() - begun

    return lambda: script(["convert b -debayer -out=../out"]) - script(["load a", "save ../copy"])


CV = (lambda name: getattr(cv2, name, 0))
# benchmark program, filter, what it is, the peer's name and how to make it
ROWS = [
    ("image_bench", "Invert", "invert, 3 planes of 6000 x 4000", "numpy copy, 1 thread", numpy_copy),
    ("image_bench", "ToDib/32", "levels to a 32-bit bitmap", "numpy copy, 1 thread", numpy_copy),
    ("point_bench", "Bright", "brightness and contrast", fp.OWN, "Copy"),
    ("point_bench", "Calculation/mode:0/clamp:0", "constant added", fp.OWN, "Copy"),
    ("point_bench", "Calculation/mode:1/clamp:1", "constant subtracted, clamped", fp.OWN, "Copy"),
    ("point_bench", "Calculation/mode:2/clamp:0", "multiplied by a constant", fp.OWN, "Copy"),
    ("point_bench", "Calculation/mode:3/clamp:0", "divided by a constant", fp.OWN, "Copy"),
    ("point_bench", "CutOff", "cut-off at the levels", fp.OWN, "Copy"),
    ("filter_bench", "Gaussian/2", "Gaussian, sigma 2", "OpenCV GaussianBlur, same taps", lambda: opencv_blur(2)),
    ("filter_bench", "Gaussian/10", "Gaussian, sigma 10", "OpenCV GaussianBlur, same taps", lambda: opencv_blur(10)),
    *fp.ROWS,
    ("point_bench", "Normalize", "normalisation of mean and deviation", "", lambda: None),
    ("tone_bench", "ToneCurve", "tone curve", "", lambda: None),
    ("colour_bench", "CorrectFromSource/1", "colour matrix, 24 Mpx", "OpenCV transform 3 x 3", cp.matrix),
    ("colour_bench", "MakeLab", "Lab planes of 24 Mpx", "OpenCV cvtColor RGB2Lab", cp.to_lab),
    ("colour_bench", "LabEnhance", "Lab stronger, back to RGB", "OpenCV cvtColor Lab2RGB", cp.from_lab),
    ("colour_bench", "FalseColour/0", "palette of 24 Mpx", "", lambda: None),
    ("composition_bench", "RgbComposition/1", "RGB composition, shifted, bicubic", "", lambda: None),
    ("composition_bench", "LrgbComposition/1", "LRGB composition, shifted", "", lambda: None),
    ("composition_bench", "LabComposition/1", "Lab composition, shifted, bicubic", "", lambda: None),
    ("fft_bench", "Transform<CFftd>/1024", "transform of 1024 x 1024", "SciPy fft2", lambda: scipy_fft(1024)),
    ("fft_bench", "Transform<CFftd>/2048", "transform of 2048 x 2048", "SciPy fft2", lambda: scipy_fft(2048)),
    ("fft_bench", "Transform<CFftd>/4096", "transform of 4096 x 4096", "SciPy fft2", lambda: scipy_fft(4096)),
    ("fft_bench", "Shift/2048", "shift of two 2048 x 2048", "scikit-image, whole pixels", lambda: skimage_shift(2048)),
    ("fft_bench", "Shift/4096", "shift of two 4096 x 4096", "scikit-image, whole pixels", lambda: skimage_shift(4096)),
    ("fft_bench", "RealPair/1024/1024", "real transform of 1024 x 1024 and back", "SciPy rfft2, irfft2",
     rp.transform(1024, 1024, THREADS)),
    ("fft_bench", "RealPair/1021/1021", "of 1021 x 1021 (a prime)", "SciPy rfft2, irfft2", rp.transform(1021, 1021, THREADS)),
    ("fft_bench", "RealPair/2000/1500", "of 2000 x 1500", "SciPy rfft2, irfft2", rp.transform(2000, 1500, THREADS)),
    *rp.ROWS,
    ("geometry_bench", "ShiftedRows/0", "shift by (0.3, 0.7), bilinear", "OpenCV warpAffine",
     lambda: opencv_warp(CV("INTER_LINEAR"), False)),
    ("geometry_bench", "ShiftedRows/1", "shift, bicubic", "OpenCV warpAffine", lambda: opencv_warp(CV("INTER_CUBIC"), False)),
    ("geometry_bench", "ShiftedRows/3", "shift, Lanczos3", "OpenCV warpAffine Lanczos4",
     lambda: opencv_warp(CV("INTER_LANCZOS4"), False)),
    ("geometry_bench", "TurnedRows/0", "rotation by 5 degrees, bilinear", "OpenCV warpAffine",
     lambda: opencv_warp(CV("INTER_LINEAR"), True)),
    ("geometry_bench", "TurnedRows/1", "rotation, bicubic", "OpenCV warpAffine", lambda: opencv_warp(CV("INTER_CUBIC"), True)),
    ("geometry_bench", "TurnedRows/3", "rotation, Lanczos3", "OpenCV warpAffine Lanczos4",
     lambda: opencv_warp(CV("INTER_LANCZOS4"), True)),
    *gp.ROWS,
    ("raw_bench", "DevelopBayer/gains:0", "Bayer development of 24 Mpx", "Siril RCD, less its i/o", siril_develop),
    ("raw_bench", "DevelopHoneycomb/pairs:3/gains:0", "honeycomb development of 24 Mpx", "", lambda: None),
    ("raw_bench", "DarkAndFlat", "dark and flat of 24 Mpx", "", lambda: None),
    ("stack_bench", "Median", "median of 30 frames of 3000 x 2000", "", lambda: None),
    ("stack_bench", "ClippedMean", "kappa-sigma of 30 frames", "", lambda: None),
]


def ours(folder, program, name):
    command = [os.path.join(folder, "bench", program), "--benchmark_filter=^%s(/process_time)?/real_time$" % name,
               "--benchmark_format=json", "--benchmark_min_time=0.3"]
    result = json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout)
    if not result["benchmarks"]:
        raise SystemExit("no benchmark %s in %s" % (name, program))
    return result["benchmarks"][0]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--only", default="")
    arguments = parser.parse_args()
    print("%-36s %10s  %-32s %10s  %6s" % ("what", "ours ms", "peer", "peer ms", "ratio"))
    for program, name, what, peer, make in ROWS:
        if arguments.only not in program + " " + name + " " + what:
            continue
        if not os.path.exists(os.path.join(arguments.build, "bench", program)):
            continue
        if peer == fp.OWN:
            peer = "our " + make

            def body(name=make):
                return ours(arguments.build, program, name)["real_time"] / 1e3
        else:
            body = make(arguments.build) if make is siril_develop else make()
        if body:
            body()
        mine, theirs, last = [], [], None
        for _ in range(arguments.rounds):
            last = ours(arguments.build, program, name)
            mine.append(last["real_time"])
            if body:
                theirs.append(timed(body))
        line = "%-36s %10.1f  " % (what, statistics.median(mine))
        if theirs:
            line += "%-32s %10.1f  %6.2f" % (peer, statistics.median(theirs),
                                             statistics.median(mine) / statistics.median(theirs))
        rates = ["%s %.3g/s" % (k.replace("_per_second", ""), v) for k, v in last.items() if k.endswith("_per_second")]
        rates += ["%s %.2f" % (k, v) for k, v in last.items() if k.startswith("of_")]
        print(line + ("   [" + ", ".join(rates) + "]" if rates else ""), flush=True)


if __name__ == "__main__":
    main()

"""What OpenCV takes for operations on colours, for bench/compare.py."""
import numpy as np

import filter_peers as fp

cv2 = fp.cv2


def interleaved(work):
    """`work(source, target)` on one image of three channels, as OpenCV has them; None without it."""
    def make():
        if cv2 is None:
            return None
        source = np.random.default_rng(1).random((fp.HEIGHT, fp.WIDTH, 3), dtype=np.float32)
        target = np.empty_like(source)
        return lambda: work(source, target)
    return make


MATRIX = np.array([[1.2, -0.1, -0.1], [-0.1, 1.2, -0.1], [-0.1, -0.1, 1.2]], np.float32)

to_lab = interleaved(lambda s, t: cv2.cvtColor(s, cv2.COLOR_RGB2Lab, dst=t))
from_lab = interleaved(lambda s, t: cv2.cvtColor(s, cv2.COLOR_Lab2RGB, dst=t))
matrix = interleaved(lambda s, t: cv2.transform(s, MATRIX, dst=t))

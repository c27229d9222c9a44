#!/usr/bin/env python3
"""The whole job beside Siril: a night of lights with a ready master dark and flat, files in, 32-bit FITS out.

    bench/night.py QMR NIGHT [--runs 3] [--threads 2]

NIGHT holds lights/, master_dark.fit, master_flat.fit and, for the accuracy, truth.json. Both programs take the same
files, page cache warm, one after the other in every round; times are medians of the rounds.
"""
import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import tempfile
import time


def run_qmr(qmr, night, out, threads):
    command = [qmr, "--threads", str(threads), "stack", night, "--dark", night + "/master_dark.fit", "--flat",
               night + "/master_flat.fit", "--bias", "none", "--output", out + "/stack.fit", "--no-preview", "--quiet",
               "--report", out + "/report.json"]
    if os.path.exists(night + "/truth.json"):
        command += ["--truth", night + "/truth.json"]
    begun = time.perf_counter()
    subprocess.run(command, check=True)
    return time.perf_counter() - begun


def run_siril(night, out, threads):
    work = os.path.join(out, "siril")
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    script = os.path.join(work, "job.ssf")
    with open(script, "w") as f:
        f.write("\n".join([
            "requires 1.0.0", "setcpu %d" % threads, "cd %s/lights" % night, "link light -out=%s" % work, "cd %s" % work,
            "preprocess light -dark=%s/master_dark.fit -flat=%s/master_flat.fit" % (night, night),
            "register pp_light -transf=similarity",
            "stack r_pp_light rej s 2.5 2.5 -nonorm -out=result", "close"]) + "\n")
    begun = time.perf_counter()
    done = subprocess.run(["siril-cli", "-d", work, "-s", script], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, env=dict(os.environ, OMP_NUM_THREADS=str(threads)))
    seconds = time.perf_counter() - begun
    if not os.path.exists(os.path.join(work, "result.fit")):
        raise SystemExit("siril failed:\n" + done.stdout[-2000:])
    registered = len(re.findall(r"Matched|pair matches", done.stdout))
    return seconds, registered


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("qmr")
    parser.add_argument("night")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--threads", type=int, default=2)
    arguments = parser.parse_args()
    night = os.path.abspath(arguments.night)
    ours, theirs = [], []
    with tempfile.TemporaryDirectory() as out:
        run_qmr(arguments.qmr, night, out, arguments.threads)
        for _ in range(arguments.runs):
            ours.append(run_qmr(arguments.qmr, night, out, arguments.threads))
            if shutil.which("siril-cli"):
                theirs.append(run_siril(night, out, arguments.threads)[0])
        with open(out + "/report.json") as f:
            report = json.load(f)
    print("qmr    %6.2f s   (%s)" % (statistics.median(ours), ", ".join("%.2f" % t for t in ours)))
    if theirs:
        print("siril  %6.2f s   (%s)" % (statistics.median(theirs), ", ".join("%.2f" % t for t in theirs)))
        print("ratio  %6.2f" % (statistics.median(ours) / statistics.median(theirs)))
    if "against_truth" in report:
        print("qmr against the truth:", json.dumps(report["against_truth"]))


if __name__ == "__main__":
    main()

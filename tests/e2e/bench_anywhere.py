#!/usr/bin/python3
"""startup_bench from a build folder under /tmp whose path has a space in it,
where the sandbox's own /tmp hides the real one.

    bench_anywhere.py --build BUILD_DIR

Copies what the benchmark runs (the program's bundle, the bare window and
the footprint tools) into such a folder, runs the benchmark there with few
runs and a small footprint, and passes when it measured every program and
printed both ratios. Whether the ratios meet their targets is the
benchmark's business, not this test's.
"""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
BENCH = os.path.join(HERE, "..", "..", "bench", "startup_bench.py")
NEEDED = ("src/app/Uninstall Tavio.app", "bench/startup_bare_window",
          "tools/footprint/tavio-footprint", "tools/fake-tavio/tavio-player",
          "tools/seal/tavio-seal")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    args = parser.parse_args()
    top = tempfile.mkdtemp(prefix="tavio bench ", dir="/tmp")
    try:
        os.chmod(top, 0o755)
        build = os.path.join(top, "build folder")
        for relative in NEEDED:
            source = os.path.join(args.build, relative)
            target = os.path.join(build, relative)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            if os.path.isdir(source):
                shutil.copytree(source, target, symlinks=True)
            else:
                shutil.copy2(source, target)
        result = subprocess.run(
            ["/usr/bin/python3", BENCH, "--build", build, "--runs", "5", "--cache-files", "100",
             "--app-size-mb", "1"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=600)
        print(result.stdout)
        measured = (result.returncode in (0, 1)
                    and "ratio uninstaller / bare window (median" in result.stdout
                    and "ratio uninstaller / bare window drawn in software" in result.stdout)
        print("PASSED" if measured else "FAILED: status %d" % result.returncode)
        return 0 if measured else 1
    finally:
        shutil.rmtree(top, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Writes the seed corpus of the terrain fuzz target from sceneries built by qvscenery.

usage: make_corpus.py QVSCENERY OUTDIR

Each seed packs one block's files as the fuzz target reads them: u32 grid length, grid, u32 index
length, index, u32 texture length, texture, then the TIN file (lengths little-endian).
"""
import os
import struct
import subprocess
import sys
import tempfile

VARIANTS = {
    "v10-plain": ["--format=1.0", "--flat=350"],
    "v11-plane": ["--format=1.1", "--plane=900,20,45"],
    "v12-hills-spread": ["--format=1.2", "--hills=500,300,2000", "--spread"],
    "v12-spread-4cells": ["--format=1.2", "--plane=100,5,270", "--spread", "--cells=4", "--tin-levels=3"],
    "v11-no-tin": ["--format=1.1", "--flat=10", "--no-tin"],
}


def read(path):
    try:
        with open(path, "rb") as f:
            return f.read()
    except FileNotFoundError:
        return b""


def main():
    qvscenery, outdir = sys.argv[1], sys.argv[2]
    os.makedirs(outdir, exist_ok=True)
    for name, args in VARIANTS.items():
        with tempfile.TemporaryDirectory() as tmp:
            base_args = ["--out=" + tmp, "--single", "--south=46", "--west=7", "--cell=0.01",
                         "--cells=2", "--tin-levels=2"]
            subprocess.run([qvscenery] + base_args + args, check=True, stdout=subprocess.DEVNULL)
            base = os.path.join(tmp, "terrain")
            packed = b""
            for ext in (".grd", ".idx", ".tex"):
                data = read(base + ext)
                packed += struct.pack("<I", len(data)) + data
            packed += read(base + ".tin")
        with open(os.path.join(outdir, name), "wb") as f:
            f.write(packed)


if __name__ == "__main__":
    main()

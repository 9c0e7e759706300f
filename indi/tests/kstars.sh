#!/usr/bin/env bash
# KStars, on a screen of its own that nobody sees, takes three frames through the driver; what it saved is
# compared with what the camera sent. Installs KStars (some 120 MB) where it is missing. Half a minute.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/setup
need test indi kstars
configure dev -DVX_BUILD_INDI=ON
cmake --build build/dev -t indi_vxcam_ccd vxcamsim >&2
export VX_INDI_DRIVER=$PWD/build/dev/indi/indi_vxcam_ccd VX_SIMULATOR=$PWD/build/dev/sim/vxcamsim
export PYTHONDONTWRITEBYTECODE=1 DBGD_DISABLE=1
private_network timeout -k 30 300 /usr/bin/python3 -W ignore indi/tests/kstars.py

#!/usr/bin/env bash
# The device server with MariaDB and the Tango database, which this starts and ends itself, in a folder
# of their own and on loopback. VX_PROGRAMS: the build folder. Arguments: what unittest is to run.
set -euo pipefail
cd "$(dirname "$0")"
export DBGD_DISABLE=1 DBGD_ANNOUCE_GROUP=127.0.0.1:7020
[ $# -gt 0 ] || set -- whole_test faults_test
for tests in "$@"; do # a client of Tango knows one database as long as it lives
    timeout 600 /usr/bin/python3 -B -m unittest -v "$tests"
done

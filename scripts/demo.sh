#!/usr/bin/env bash
# Runs the demo: the bundled front and feed simulator and the console client
# on loopback. Installs what the build needs first (apt-get, only what is
# missing), so that it works on a fresh machine.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ ! -x scripts/run-demo.sh ]; then
  echo "The demo arrives with the whole library (simulator and console client)."
  exit 0
fi
scripts/install-deps.sh
exec scripts/run-demo.sh "$@"

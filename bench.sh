#!/usr/bin/env bash
# Measures the component beside what a host could use in its place. benchmarks/bench.py does all that; here is only
# what it needs itself.
set -eu
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
command -v python3 > /dev/null || "$root/scripts/install-packages" bench || exit 3
exec python3 "$root/benchmarks/bench.py" "$@"

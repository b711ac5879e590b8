#!/usr/bin/env bash
# Shows the component at work: builds it, registers it in a private Wine prefix, and lets the sample host post a
# form with it. tools/demo.py does all that; here is only what it needs itself.
set -eu
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
command -v python3 > /dev/null || "$root/scripts/install-packages" run || exit 3
exec python3 "$root/tools/demo.py" "$@"

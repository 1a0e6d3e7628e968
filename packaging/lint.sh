#!/usr/bin/env bash
# Checks format, clang-tidy, scripts and the house rules for everything in the tree. All checks run, even if one fails.
# Usage: lint.sh ALONE_DIR TOGETHER_DIR JOBS
set -euo pipefail
cd "$(dirname "$0")/.."
alone=$1
together=$2
jobs=$3
failed=0

# Files that git knows or would add, so that new files are checked before they are committed. `ls` leaves out deleted files.
list() {
    git ls-files --cached --others --exclude-standard -z -- "$@" | xargs -0 -r ls -d 2>/dev/null || true
}
mapfile -t sources < <(list '*.h' '*.cpp')
mapfile -t scripts < <(list '*.sh' .ci/run debian/tests/clients debian/tests/lifecycle)
mapfile -t typed < <(list 'examples/*.py')

# Headers that are generated.
for build in "$alone" "$together"; do cmake --build "$build" --target hmxrelay_types >/dev/null; done
printf '%s\0' "${sources[@]}" | xargs -0 -n 16 -P "$jobs" clang-format --dry-run -Werror || failed=1
shellcheck "${scripts[@]}" || failed=1
mypy --strict --no-error-summary --cache-dir=/dev/null "${typed[@]}" || failed=1
python3 packaging/house_rules.py "${sources[@]}" || failed=1
packaging/inspector.sh check || failed=1
python3 packaging/tidy.py "$alone" "$together" "$jobs" "${sources[@]}" || failed=1
[ "$failed" -eq 0 ] && echo "lint: ${#sources[@]} sources and ${#scripts[@]} scripts are clean"
exit "$failed"

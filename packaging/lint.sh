#!/usr/bin/env bash
# Formatting, clang-tidy, shell scripts and the rules of this house. Usage: lint.sh JOBS
# A source that passed clang-tidy is not looked at again until it, a header or the rules change: results are kept in .cache/tidy.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$1
failed=0

mapfile -t sources < <(git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h')
clang-format --dry-run -Werror "${sources[@]}" || failed=1

if command -v shellcheck >/dev/null; then
    mapfile -t scripts < <(git ls-files --cached --others --exclude-standard -- '*.sh' .ci/run)
    shellcheck "${scripts[@]}" || failed=1
fi

for header in "${sources[@]}"; do
    case $header in
        *.h)
            head -n 1 "$header" | grep -q '^// ' || { echo "$header: the first line does not say what it is"; failed=1; }
            grep -q '^#pragma once$' "$header" || { echo "$header: no #pragma once"; failed=1; }
            ;;
    esac
done

# Floors 2 to 6 use the standard library and the platform's headers alone.
if git grep -nE '#include <(cbor|uuid/|nlohmann|CLI/|gtest|gmock|benchmark)' -- core bridge app graphics tolu.service.hmx 'swagger.*' platform/include; then
    echo "a packaged library is included where only the platform may be"
    failed=1
fi

cmake --preset release >/dev/null
mkdir -p .cache/tidy
base=$( (cat .clang-tidy; git ls-files --cached --others --exclude-standard -- '*.h' | sort | xargs cat) | sha256sum | cut -d' ' -f1)
todo=()
for source in "${sources[@]}"; do
    case $source in
        tests/* | bench/* | fuzz/* | *.h) continue ;;
    esac
    grep -q "\"$PWD/$source\"" build/release/compile_commands.json || continue
    [ -e ".cache/tidy/$( (echo "$base"; cat "$source") | sha256sum | cut -d' ' -f1)" ] || todo+=("$source")
done
if [ "${#todo[@]}" -gt 0 ]; then
    export base
    # shellcheck disable=SC2016 # expanded by the inner shell
    printf '%s\n' "${todo[@]}" | xargs -P "$jobs" -I{} bash -c '
        if clang-tidy -p build/release --quiet --warnings-as-errors="*" "$1" 2>/dev/null; then
            touch ".cache/tidy/$( (echo "$base"; cat "$1") | sha256sum | cut -d" " -f1)"
        else
            exit 1
        fi' _ {} || failed=1
fi
exit "$failed"

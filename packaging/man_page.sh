#!/usr/bin/env bash
# Makes a man page from its scdoc source in such a way that text can be copied from it: words are not hyphenated, and a hyphen
# is the character that is typed.
# Usage: man_page.sh SCDOC <PAGE.scd >PAGE
set -euo pipefail
"$1" | sed -e '/^[.]/!{/^\\h/!s/-/\\-/g}' -e '/^[.]TH /a .nh'

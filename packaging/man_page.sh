#!/usr/bin/env bash
# Makes a man page from its scdoc source, such that what it shows can be copied: no word is divided at a line's end, and a hyphen is the one
# that is typed. Usage: man_page.sh SCDOC <PAGE.scd >PAGE
set -euo pipefail
"$1" | sed -e '/^[.]/!{/^\\h/!s/-/\\-/g}' -e '/^[.]TH /a .nh'

#!/bin/sh
# no_fused_arithmetic.sh OBJDUMP LIBRARY: fails when the library holds fused multiply-add instructions.
set -eu
found=$("$1" -d --no-show-raw-insn "$2" | awk '/^[0-9a-f]+ </ {name = $2} / vfn?m(add|sub)/ {print name, $2}' | sort | uniq -c)
[ -z "$found" ] || { echo "fused arithmetic in $2:"; echo "$found"; exit 1; }

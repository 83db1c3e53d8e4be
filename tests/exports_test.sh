#!/usr/bin/env bash
# usage: exports_test.sh NM LIBRARY FOLDER-OF-THE-SOURCES
# What programs can see of the shared object is what its list of exports names, and what its header declares: a name
# that comes, goes or is one of C++ is a change of the interface, and has to be meant.
set -euo pipefail
export LC_ALL=C
listed=$(sed -n '/global:/,/local:/s/^ *\(portisolate_[a-z_]*\);$/\1/p' "$3/lib/interface/portisolate.map" | sort)
declared=$(sed -n '/^PORTISOLATE_API/,/;/p' "$3/lib/interface/portisolate.h" | grep -o 'portisolate_[a-z_]*(' | tr -d '(' | sort -u)
exported=$("$1" -D --defined-only "$2" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort)
[ -n "$listed" ] || { echo 'the list of exports is empty'; exit 1; }
diff <(echo "$listed") <(echo "$exported") || { echo 'exported (>) is not what is listed (<)'; exit 1; }
diff <(echo "$listed") <(echo "$declared") || { echo 'declared (>) is not what is listed (<)'; exit 1; }

#!/usr/bin/env bash
# usage: footprint.sh NM SIZE OBJECT...
# What the daemon proper may cost a board: no more text than the limit, and nothing in its objects that takes memory,
# throws, or drags in locales and streams.
set -euo pipefail

limit=$((80 * 1024))
# As the linker sees them: the C functions, then operators new and delete, then the C++ library's parts.
unwanted='^(malloc|calloc|realloc|reallocarray|free|aligned_alloc|posix_memalign|memalign|strn?dup|v?asprintf|getline)$'
unwanted+='|^(setlocale|newlocale|uselocale|localeconv|open_memstream|mmap|s?brk)$|^_Zn[wa]|^_Zd[la]|__cxa_(throw|allocate)'
unwanted+='|locale|ios_base|ostream|istream|streambuf|stringstream|_ZSt4c(out|err|in|log)|basic_string|_ZNSs|allocator'

nm=$1 size=$2
shift 2
[ $# -gt 0 ] || { echo "no objects given"; exit 2; }

text=$("$size" "$@" | awk 'NR > 1 { sum += $1 } END { print sum + 0 }')
symbols=$("$nm" -P "$@" | awk 'NF > 1 { print $1 }' | sort -u)
[ "$text" -gt 0 ] && grep -qx portIsolateOptInit <<<"$("$nm" -PC "$@" | sed 's/().*//')" ||
    { echo "these are not the daemon's objects"; exit 2; }

status=0
echo "text: $text bytes, at most $limit"
[ "$text" -lt "$limit" ] || status=1
if found=$(grep -E "$unwanted" <<<"$symbols"); then
    printf 'not for the daemon proper: %s\n' $found
    status=1
fi
exit $status

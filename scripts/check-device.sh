#!/usr/bin/env bash
# What a device build would reject, checked on a Linux host:
#  1. every daemon source compiles against the platform's own liblog and
#     libcutils headers (Debian's android-liblog-dev and android-libcutils-dev)
#     in place of platform/host/include, warnings as errors; memtrack keeps
#     our declaration, as no platform header for it is packaged;
#  2. every host header with a platform counterpart declares what the platform
#     declares: the same functions with the same types, the same enumerators
#     with the same values;
#  3. Android.bp parses and is formatted as bpfmt formats it.
# Sources are found at run time, so files added or moved are checked too.
# Run as root (or with sudo available) when packages are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh android-liblog-dev android-libcutils-dev blueprint-tools

platform_include=/usr/include/android
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# cutils/properties.h includes bionic's <sys/system_properties.h> for
# PROP_VALUE_MAX (92 in bionic); glibc has no such header.
mkdir -p "$work/bionic/sys" "$work/memtrack"
echo '#define PROP_VALUE_MAX 92' >"$work/bionic/sys/system_properties.h"
# Only memtrack from the host include directory.
ln -s "$PWD/platform/host/include/memtrack" "$work/memtrack/memtrack"

cxx="${CXX:-c++}"
flags=(-std=c++17 -Wall -Wextra -Werror -fsyntax-only -I. -I"$platform_include"
       -I"$work/bionic" -I"$work/memtrack")
failed=0

echo "== daemon sources against the platform's liblog and libcutils headers"
mapfile -t sources < <({ find config daemon metrics monitors stats -name '*.cpp';
                         find platform -maxdepth 1 -name '*.cpp'; } | sort)
if [ ${#sources[@]} -eq 0 ]; then
  echo "no daemon sources found" >&2
  exit 1
fi
# Two at a time (or as many as there are cores); each failure is named.
printf '%s\n' "${sources[@]}" | xargs -P "$(nproc)" -I{} sh -c \
  '"$0" "$@" {} || { echo "FAILED: {}" >&2; exit 1; }' "$cxx" "${flags[@]}" || failed=1
echo "${#sources[@]} files"

echo "== host headers agree with the platform's"
# Each host header goes into its own namespace after the platform header: an
# extern "C" function declared there with other types is a conflicting C
# linkage declaration (an error with -Werror), and every enumerator is
# compared with the platform's by value.
checked=0
while IFS= read -r header; do
  relative="${header#platform/host/include/}"
  [ -f "$platform_include/$relative" ] || continue
  unit="$work/agree_${checked}.cpp"
  {
    echo "#include <$relative>"
    echo "namespace host_side {"
    echo "#include \"$PWD/$header\""
    echo "}"
    awk '/typedef enum/ { inside = 1; next }
         inside && /}/ { inside = 0 }
         inside && $1 ~ /^[A-Z_][A-Z0-9_]*,?$|^[A-Z_][A-Z0-9_]*$/ {
           name = $1; sub(/,$/, "", name)
           printf "static_assert(static_cast<int>(host_side::%s) == static_cast<int>(%s), \"%s differs from the platform\");\n", name, name, name
         }' "$header"
  } >"$unit"
  if ! "$cxx" "${flags[@]}" "$unit"; then
    echo "FAILED: $header does not agree with $platform_include/$relative" >&2
    failed=1
  fi
  checked=$((checked + 1))
done < <(find platform/host/include -name '*.h' | sort)
if [ "$checked" -eq 0 ]; then
  echo "no host header has a platform counterpart" >&2
  exit 1
fi
echo "$checked headers"

echo "== Android.bp"
# bpfmt -d prints nothing for a parseable, formatted file; a parse error goes
# to stderr with a non-zero status.
if ! diff_out="$(bpfmt -d Android.bp 2>&1)" || [ -n "$diff_out" ]; then
  printf '%s\n' "$diff_out" >&2
  echo "FAILED: Android.bp does not parse or is not formatted (bpfmt -w Android.bp)" >&2
  failed=1
fi

[ "$failed" -eq 0 ] || exit 1
echo "device checks passed"

#!/usr/bin/env bash
# What an Android 11 platform build and its init would reject, checked on a
# Linux host:
#  1. every source of each module of Android.bp, as its globs select them,
#     compiles as Soong 11 compiles it for a device: clang with Soong's global
#     device flags, then the module's own flags as Android.bp gives them, then
#     Soong's no-override flags, against the platform's liblog and libcutils
#     headers (Debian's android-liblog-dev and android-libcutils-dev) and
#     libc++, the platform's C++ library; memtrack keeps our declaration, as no
#     platform header for it is packaged;
#  2. every host header with a platform counterpart declares what the platform
#     declares: the same functions with the same types, the same enumerators
#     with the same values;
#  3. every library (and other module) a module depends on is a module of an
#     Android 11 tree (android/android11-libraries.txt) or one this project
#     ships (Android.bp, android/cjson/cjson.bp);
#  4. every top-level /data directory the modules' init scripts make names its
#     encryption, as init asks ("Top-level directory needs encryption action");
#  5. the README names BOARD_PLAT_PRIVATE_SEPOLICY_DIR with our policy, the
#     variable Android 11 reads the system_ext private policy from;
#  6. the build files parse and are formatted as bpfmt formats them, and the
#     cJSON release the device build checks out is the host build's.
# Sources are found at run time, so files added or moved are checked too.
# Run as root (or with sudo available) when packages are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh android-liblog-dev android-libcutils-dev blueprint-tools clang \
  libc++-14-dev libc++abi-14-dev libcjson-dev python3

build_files=(Android.bp android/cjson/cjson.bp)
platform_libraries=android/android11-libraries.txt
cjson_manifest=android/cjson/local_manifest.xml
platform_include=/usr/include/android
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
failed=0

# Soong 11 (build/soong/cc/config: global.go, clang.go, arm64_device.go) puts
# these before a module's own flags when it compiles for an arm64 device:
# ClangExtraExternalCflags (its test for third-party code, isThirdParty in
# cc/compiler.go, holds for every path outside a few of the platform's own),
# commonGlobalCflags and ClangExtraCflags, the automatic zero initialisation,
# deviceGlobalCflags (less -fdiagnostics-color, which it filters out for
# clang), the arm64 cflags and -DANDROID_STRICT for code outside external/,
# then for C++ commonGlobalCppflags, ClangExtraCppflags and
# deviceGlobalCppflags. Left out: what only names the target and the
# toolchain's place (-target, -B, -nostdlibinc, -march, -mcpu) and the colour
# of the diagnostics.
soong_cflags=(
  -Wno-enum-compare -Wno-enum-compare-switch -Wno-null-pointer-arithmetic -Wno-null-dereference
  -Wno-pointer-compare -Wno-xor-used-as-pow -Wno-final-dtor-non-final-class
  -DANDROID -fmessage-length=0 -W -Wall -Wno-unused -Winit-self -Wpointer-arith
  -no-canonical-prefixes -DNDEBUG -UDEBUG -fno-exceptions -Wno-multichar -O2 -g
  -fno-strict-aliasing -Werror=date-time -Werror=pragma-pack
  -Werror=pragma-pack-suspicious-include -fdebug-prefix-map=/proc/self/cwd=
  -D__compiler_offsetof=__builtin_offsetof -faddrsig -Werror=int-conversion
  -fexperimental-new-pass-manager -Wno-reserved-id-macro -Wno-unused-command-line-argument
  -Wno-sign-compare -Wno-defaulted-function-deleted -Wno-inconsistent-missing-override
  -Wno-c99-designator
  -ftrivial-auto-var-init=zero -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang
  -ffunction-sections -fdata-sections -fno-short-enums -funwind-tables
  -fstack-protector-strong -Wa,--noexecstack -D_FORTIFY_SOURCE=2 -Wstrict-aliasing=2
  -Werror=return-type -Werror=non-virtual-dtor -Werror=address -Werror=sequence-point
  -Werror=format-security
  -Werror=implicit-function-declaration -DANDROID_STRICT
)
soong_cppflags=(
  -Wsign-promo -Wimplicit-fallthrough -D_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS
  -Wno-gnu-include-next -fvisibility-inlines-hidden
)
# ... and these after them: noOverrideGlobalCflags and ClangExtraNoOverrideCflags.
soong_no_override=(
  -Werror=int-to-pointer-cast -Werror=pointer-to-int-cast -Werror=fortify-source
  -Werror=address-of-temporary -Werror=return-type
  -Wno-tautological-constant-compare -Wno-tautological-type-limit-compare
  -Wno-reorder-init-list -Wno-implicit-int-float-conversion -Wno-int-in-bool-context
  -Wno-sizeof-array-div -Wno-tautological-overlap-compare -Wno-deprecated-copy
  -Wno-range-loop-construct -Wno-misleading-indentation -Wno-zero-as-null-pointer-constant
  -Wno-deprecated-anon-enum-enum-conversion -Wno-deprecated-enum-enum-conversion
  -Wno-string-compare -Wno-enum-enum-conversion -Wno-enum-float-conversion
  -Wno-pessimizing-move
)

# Reads the build files as Soong reads them, for what the checks need:
#   bp modules FILE...       every module's name
#   bp deps FILE...          "MODULE DEPENDENCY" for every module a module
#                            names (libraries, defaults, generated headers,
#                            required modules), at any depth of its properties
#   bp init_rc FILE...       the init scripts the modules install
#   bp compile DIR FILE...   for each source of each compiled module (its srcs
#                            with its defaults', globs expanded, exclude_srcs
#                            taken out): writes the module's own flags for the
#                            source's language to DIR/<n>.rsp in Soong's order
#                            (cflags, -std, cppflags or conlyflags, then
#                            -fno-rtti for C++) and prints "<n>.rsp<TAB>SOURCE"
bp() {
  python3 - "$@" <<'PYTHON'
import glob
import os
import re
import sys

TOKEN = re.compile(r'\s+|//[^\n]*|/\*.*?\*/|"((?:[^"\\]|\\.)*)"|([A-Za-z_][A-Za-z0-9_]*)|(-?[0-9]+)|(.)',
                   re.S)


def fail(message):
    sys.exit('check-device: ' + message)


class BlueprintFile:
    def __init__(self, path):
        self.path = path
        self.tokens = []
        for m in TOKEN.finditer(open(path, encoding='utf-8').read()):
            if m.group(1) is not None:
                self.tokens.append(('str', m.group(1).encode().decode('unicode_escape')))
            elif m.group(2):
                self.tokens.append(('id', m.group(2)))
            elif m.group(3):
                self.tokens.append(('int', int(m.group(3))))
            elif m.group(4):
                self.tokens.append(('op', m.group(4)))
        self.at = 0
        self.variables = {}
        self.modules = []
        while self.peek()[0] != 'eof':
            name = self.take('id')
            if self.peek() == ('op', '+'):
                self.take()
                self.take('op', '=')
                self.variables[name] = self.variables[name] + self.value()
            elif self.peek() == ('op', '='):
                self.take()
                self.variables[name] = self.value()
            else:
                self.modules.append((name, self.map()))

    def peek(self):
        return self.tokens[self.at] if self.at < len(self.tokens) else ('eof', None)

    def take(self, kind=None, text=None):
        token = self.peek()
        if token[0] == 'eof' or (kind and token[0] != kind) or (text is not None and token[1] != text):
            fail(f'{self.path}: expected {text or kind}, found {token[1]!r}')
        self.at += 1
        return token[1]

    def value(self):
        result = self.term()
        while self.peek() == ('op', '+'):
            self.take()
            result = result + self.term()
        return result

    def term(self):
        kind, text = self.peek()
        if kind in ('str', 'int'):
            self.at += 1
            return text
        if kind == 'id':
            self.at += 1
            if text in ('true', 'false'):
                return text == 'true'
            if text not in self.variables:
                fail(f'{self.path}: undefined variable {text}')
            return self.variables[text]
        if text == '[':
            self.take()
            items = []
            while self.peek() != ('op', ']'):
                items.append(self.value())
                if self.peek() != ('op', ']'):
                    self.take('op', ',')
            self.take()
            return items
        if text == '{':
            return self.map()
        fail(f'{self.path}: unexpected {text!r}')

    def map(self):
        self.take('op', '{')
        properties = {}
        while self.peek() != ('op', '}'):
            name = self.take('id')
            if self.take('op') not in (':', '='):
                fail(f'{self.path}: expected ":" after {name}')
            properties[name] = self.value()
            if self.peek() != ('op', '}'):
                self.take('op', ',')
        self.take()
        return properties


DEPENDENCY_PROPERTIES = {
    'defaults', 'export_generated_headers', 'export_header_lib_headers', 'export_shared_lib_headers',
    'export_static_lib_headers', 'generated_headers', 'generated_sources', 'header_libs', 'required',
    'runtime_libs', 'shared_libs', 'static_libs', 'whole_static_libs',
}


def load(paths):
    modules = {}
    for path in paths:
        for kind, properties in BlueprintFile(path).modules:
            name = properties.get('name')
            if name in modules:
                fail(f'{path}: module {name} defined twice')
            modules[name] = (kind, properties, os.path.dirname(path) or '.')
    return modules


def dependencies(properties):
    for key, value in properties.items():
        if isinstance(value, dict):
            yield from dependencies(value)
        elif key in DEPENDENCY_PROPERTIES:
            yield from value


def resolved(modules, name):
    # Soong puts each defaults module's list properties before the module's own.
    kind, own, _ = modules[name]
    properties = dict(own)
    for default in own.get('defaults', []):
        for key, value in resolved(modules, default).items():
            if key == 'name':
                continue
            if isinstance(value, list):
                properties[key] = value + properties.get(key, [])
            else:
                properties.setdefault(key, value)
    return properties


def expand(directory, patterns, module):
    files = []
    for pattern in patterns:
        if pattern.startswith(':'):
            fail(f'{module}: sources from other modules ({pattern}) are not checked here')
        found = sorted(os.path.normpath(path)
                       for path in glob.glob(os.path.join(directory, pattern), recursive=True))
        if not found:
            fail(f'{module}: no source matches {pattern}')
        files += [path for path in found if path not in files]
    return files


def checked_flags(module, prop, flags):
    # What Soong refuses in a module's flags (cc/check.go).
    for flag in flags:
        if not flag.startswith('-') or flag.startswith(('-I', '-isystem')) or flag in ('-w', '-Weverything') \
                or (' ' in flag and not (flag.startswith('-D') and '=' in flag)):
            fail(f'{module}: {prop} holds {flag!r}, which Soong refuses')
    return flags


def compile_jobs(out_dir, modules):
    response_files = {}
    jobs = []
    for name, (kind, _, directory) in sorted(modules.items()):
        if not kind.startswith('cc_') or kind == 'cc_defaults':
            continue
        properties = resolved(modules, name)
        if 'srcs' not in properties:
            continue
        excluded = set(expand(directory, properties.get('exclude_srcs', []), name))
        cflags = checked_flags(name, 'cflags', properties.get('cflags', []))
        for source in expand(directory, properties['srcs'], name):
            if source in excluded:
                continue
            if source.endswith('.c'):
                flags = cflags + ['-std=' + properties.get('c_std', 'gnu99')] + \
                    checked_flags(name, 'conlyflags', properties.get('conlyflags', []))
            elif source.endswith(('.cpp', '.cc', '.cxx')):
                flags = cflags + ['-std=' + properties.get('cpp_std', 'gnu++17')] + \
                    checked_flags(name, 'cppflags', properties.get('cppflags', [])) + \
                    ['-frtti' if properties.get('rtti') else '-fno-rtti']
            else:
                fail(f'{name}: no check for the language of {source}')
            text = '\n'.join('"' + f.replace('\\', '\\\\').replace('"', '\\"') + '"' for f in flags) + '\n'
            if text not in response_files:
                response_files[text] = os.path.join(out_dir, f'{len(response_files)}.rsp')
                with open(response_files[text], 'w', encoding='utf-8') as rsp:
                    rsp.write(text)
            job = f'{response_files[text]}\t{source}'
            if job not in jobs:
                jobs.append(job)
    print('\n'.join(jobs))


command, arguments = sys.argv[1], sys.argv[2:]
if command == 'compile':
    compile_jobs(arguments[0], load(arguments[1:]))
else:
    modules = load(arguments)
    for name, (kind, properties, directory) in modules.items():
        if command == 'modules':
            print(name)
        elif command == 'deps':
            for dependency in dependencies(properties):
                print(name, dependency)
        elif command == 'init_rc':
            for script in properties.get('init_rc', []):
                print(os.path.normpath(os.path.join(directory, script)))
PYTHON
}

echo "== module sources as Soong 11 compiles them for a device"
# cutils/properties.h includes bionic's <sys/system_properties.h> for
# PROP_VALUE_MAX (92 in bionic); glibc has no such header.
mkdir -p "$work/bionic/sys" "$work/memtrack" "$work/jobs"
echo '#define PROP_VALUE_MAX 92' >"$work/bionic/sys/system_properties.h"
# Only memtrack from the host include directory.
ln -s "$PWD/platform/host/include/memtrack" "$work/memtrack/memtrack"
includes=(-I. -I"$platform_include" -I"$work/bionic" -I"$work/memtrack")
bp compile "$work/jobs" Android.bp >"$work/jobs.txt"
mapfile -t jobs <"$work/jobs.txt"
if [ ${#jobs[@]} -eq 0 ]; then
  echo "no module sources found" >&2
  exit 1
fi
# Syntax only: every rule these flags add (exceptions, warnings made errors)
# is one the compiler's front end enforces. As many at a time as there are
# cores; each failure is named.
printf '%s\0' "${soong_cflags[@]}" >"$work/cflags"
printf '%s\0' "${soong_cppflags[@]}" >"$work/cppflags"
printf '%s\0' "${soong_no_override[@]}" "${includes[@]}" >"$work/after"
compile_one() {
  local rsp="${1%%$'\t'*}" source="${1#*$'\t'}" compiler=(clang++ -stdlib=libc++) language=cppflags
  case "$source" in *.c) compiler=(clang); language=none ;; esac
  local global=() after=()
  mapfile -d '' global < <(cat "$work/cflags"; [ "$language" = none ] || cat "$work/$language")
  mapfile -d '' after <"$work/after"
  "${compiler[@]}" -fsyntax-only "${global[@]}" @"$rsp" "${after[@]}" "$source" ||
    { echo "FAILED: $source" >&2; return 1; }
}
export -f compile_one
export work
printf '%s\n' "${jobs[@]}" | xargs -d '\n' -P "$(nproc)" -I{} bash -c 'compile_one "$1"' _ {} || failed=1
echo "${#jobs[@]} files"

echo "== host headers agree with the platform's"
# Each host header goes into its own namespace after the platform header: an
# extern "C" function declared there with other types is a conflicting C
# linkage declaration (an error with -Werror), and every enumerator is
# compared with the platform's by value.
flags=(-std=c++17 -Wall -Wextra -Werror -fsyntax-only "${includes[@]}")
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
  if ! clang++ "${flags[@]}" "$unit"; then
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

echo "== dependencies are modules of an Android 11 tree or of this project"
known="$work/known"
bp modules "${build_files[@]}" >"$known"
grep -v '^#' "$platform_libraries" >>"$known"
bp deps "${build_files[@]}" >"$work/deps"
dependencies=0
while read -r module dependency; do
  if ! grep -qxF "$dependency" "$known"; then
    echo "FAILED: $module depends on $dependency, which no Android 11 tree has and this project does not ship" >&2
    failed=1
  fi
  dependencies=$((dependencies + 1))
done <"$work/deps"
echo "$dependencies dependencies"

echo "== top-level /data directories made by init name their encryption"
bp init_rc Android.bp >"$work/scripts"
mapfile -t scripts <"$work/scripts"
if [ ${#scripts[@]} -eq 0 ]; then
  echo "no init script in Android.bp" >&2
  exit 1
fi
# init warns "Top-level directory needs encryption action" for a mkdir of
# /data/<name> without one, and refuses an unknown one.
for script in "${scripts[@]}"; do
  awk -v script="$script" '
    $1 == "mkdir" && $2 ~ /^\/data\/[^\/]+$/ {
      named = 0
      for (i = 3; i <= NF; i++)
        if ($i ~ /^encryption=(Require|None|Attempt|DeleteIfNecessary)$/) named = 1
      if (!named) {
        printf "FAILED: %s:%d: %s has no encryption action\n", script, NR, $2 > "/dev/stderr"
        bad = 1
      }
    }
    END { exit bad }' "$script" || failed=1
done
echo "${#scripts[@]} init scripts"

echo "== README: the Android 11 policy variable"
if ! grep -qE 'BOARD_PLAT_PRIVATE_SEPOLICY_DIR \+= [^ ]*/android/sepolicy$' README.md; then
  echo "FAILED: README.md does not add android/sepolicy to BOARD_PLAT_PRIVATE_SEPOLICY_DIR, the" \
       "only variable Android 11 reads the system_ext private policy from" >&2
  failed=1
fi

echo "== build files and the cJSON release"
# bpfmt -d prints nothing for a parseable, formatted file; a parse error goes
# to stderr with a non-zero status.
for file in "${build_files[@]}"; do
  if ! diff_out="$(bpfmt -d "$file" 2>&1)" || [ -n "$diff_out" ]; then
    printf '%s\n' "$diff_out" >&2
    echo "FAILED: $file does not parse or is not formatted (bpfmt -w $file)" >&2
    failed=1
  fi
done
host_cjson="$(awk '/#define CJSON_VERSION_(MAJOR|MINOR|PATCH)/ { v = v (v ? "." : "") $3 } END { print v }' \
  /usr/include/cjson/cJSON.h)"
if ! grep -q "revision=\"refs/tags/v$host_cjson\"" "$cjson_manifest"; then
  echo "FAILED: $cjson_manifest does not check out cJSON v$host_cjson, the host build's" >&2
  failed=1
fi

[ "$failed" -eq 0 ] || exit 1
echo "device checks passed"

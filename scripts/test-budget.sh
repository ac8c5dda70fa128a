#!/usr/bin/env bash
# The size of the test suite against the size of the product, in plain lines
# of source (.cpp .h .c .py .sh). Product: config/ daemon/ metrics/ monitors/
# platform/ stats/ tools/. Tests: everything under tests/ except data (fixture
# trees, fuzz corpora, golden and expected files). Prints one line and fails
# outside 0.25 to 0.35.
#
# Why a band: the suite is meant to be roughly a quarter to a third of the
# product. Above it, tests restate the code or one another (a golden row or a
# table row does the work of a new test function); below it, behaviour goes
# unshown. The upper bound leaves a little room over a third for a change
# that lands its code and its rows together.
set -euo pipefail
cd "$(dirname "$0")/.."
low=0.25
high=0.35

count_lines() {
  git ls-files -- "$@" | grep -E '\.(cpp|h|c|py|sh)$' \
    | grep -v -E '(^|/)(fixtures|corpus|golden|expected)/' | xargs -r cat | wc -l
}
product=$(count_lines config daemon metrics monitors platform stats tools)
tests=$(count_lines tests)
ratio=$(awk -v t="$tests" -v p="$product" 'BEGIN { printf "%.2f", t / p }')
echo "Test budget: test code $tests lines, product code $product lines, ratio $ratio (band $low to $high)"
if awk -v r="$ratio" -v h="$high" 'BEGIN { exit !(r > h) }'; then
  echo "Test code is over $high of the product code: make the suite smaller" >&2
  exit 1
fi
if awk -v r="$ratio" -v l="$low" 'BEGIN { exit !(r < l) }'; then
  echo "Test code is under $low of the product code: behaviour is going untested" >&2
  exit 1
fi

#!/usr/bin/env bash
# The size of the test suite against the size of the product, in plain lines
# of source (.cpp .h .c .py .sh). Product: config/ daemon/ metrics/ monitors/
# platform/ stats/ tools/. Tests: everything under tests/ except data (fixture
# trees, fuzz corpora, golden and expected files). Prints one line and fails
# when the tests grow past 0.40 of the product.
set -euo pipefail
cd "$(dirname "$0")/.."
limit=0.40

count_lines() {
  git ls-files -- "$@" | grep -E '\.(cpp|h|c|py|sh)$' \
    | grep -v -E '(^|/)(fixtures|corpus|golden|expected)/' | xargs -r cat | wc -l
}
product=$(count_lines config daemon metrics monitors platform stats tools)
tests=$(count_lines tests)
ratio=$(awk -v t="$tests" -v p="$product" 'BEGIN { printf "%.2f", t / p }')
echo "Test budget: test code $tests lines, product code $product lines, ratio $ratio (limit $limit)"
awk -v r="$ratio" -v l="$limit" 'BEGIN { exit !(r <= l) }' || {
  echo "Test code is over $limit of the product code: make the suite smaller" >&2
  exit 1
}

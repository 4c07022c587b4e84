#!/usr/bin/env bash
# Mutation run of the suite (docs/testing.md): a seeded sample of small
# changes to kivo/ and the phonebook library's conversions, each built and
# tested by the fast ctest tiers in a private copy of the tree.
#
#   bash scripts/mutants.sh [--seed N] [--count N] [--list] [--file PATH]...
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh mutants
exec python3 scripts/mutants.py "$@"

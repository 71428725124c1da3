#!/usr/bin/env bash
# Usage: preprocess_only.sh COMPILER ARGUMENT...
#
# A compiler launcher for the linter's build: writes the dependencies for ninja, which caches the linter's
# results, without the time of compiling.
exec "$@" -E

# shellcheck shell=bash
# Sourced by every script here: enters the project's root, whatever directory the caller is in.

set -euo pipefail

script="${BASH_SOURCE[1]}"
root="$( cd "$( dirname "${BASH_SOURCE[0]}" )/.." && pwd -P )"
cd "$root"

# One compiler cache for all presets; it lives and dies with the build tree. What differs between
# two presets by a macro that a file never mentions is compiled once, and with a cache that is shared
# by several clones also what is the same in them.
export CCACHE_DIR="${CCACHE_DIR:-$root/build/ccache}" CCACHE_NOHASHDIR=1 CCACHE_BASEDIR="$root"
export CMAKE_BUILD_PARALLEL_LEVEL="${CMAKE_BUILD_PARALLEL_LEVEL:-$( nproc )}"

# Standard output belongs to the program that a script runs; what we have to say goes beside it.
say() { printf '%s: %s\n' "${script##*/}" "$*" >&2; }
die() { say "$*"; exit 1; }

# Prints the comment that opens the calling script.
usage() { sed -n '2,/^$/s/^# \{0,1\}//p' "$script"; }
